/*
 * Processes: which ones run, under what names, and who has started this one.
 *
 *     ProcessControl processes;
 *     const ProcessEntry* client = NULL;
 *     processes.refresh(false);
 *     while ((client = processes.getNextProcessEntryByName("dhcpc", client)) != NULL)
 *       printf("%d: %s\n", client->getPid(), client->getName());      (812: dhcpc -i eth0)
 *
 * C programs have the plain functions, for one process at a time.
 *
 * All of it is read from /proc (proc(5)), and is the past as soon as it has been read: a process
 * may end at any time, and its id then belongs to nobody, or to another process. Where /proc is
 * mounted to hide other users' processes, these do not exist; nor do any, but to pid_alive(), while
 * there is no descriptor left to read with.
 *
 * Nothing is logged. Nothing blocks, but for the kernel's own work; a call that a signal interrupts
 * goes on. errno is of no meaning after any of the calls. Descriptors are close-on-exec.
 *
 * Threads and signals: nothing is locked. A ProcessControl, with its entries, is for one thread at
 * a time, and two of them know nothing of each other. procname() has one result for all threads;
 * the other plain functions may be called from several threads at once. A thread that is cancelled
 * (pthread_cancel(3)) finishes its call first. Nothing here is for signal handlers.
 */
#ifndef RKUTILS_PROCESS_CONTROL_H
#define RKUTILS_PROCESS_CONTROL_H

#include <rkutils/export.h>

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Whether there is a process, or a thread, with the id `pid`, as far as the real user may read its
 * folder /proc/PID. One that has ended is there until its parent has waited for it.
 *
 * Returns 1 or 0.
 */
RK_API int pid_alive(int pid);

/*
 * The id of the parent of the process `pid`: 0 for process 1, and for one whose parent is outside
 * of this pid namespace (pid_namespaces(7)).
 *
 * Returns -1 when there is no such process, or when nothing can be read of it.
 *
 * Kept for compatibility: the fourth word of the first line of /proc/PID/stat, of which 254 bytes
 * are read, counts as atoi(3) reads it; and a process may have spaces in its name, which is the
 * second. The result for those is mostly 0, and may be any number that the name has in it; -1 for a
 * name with a newline that comes before the fourth word.
 */
RK_API int get_parent_pid(int pid);

/*
 * The name of the program that has started this one, its parent, where up to two shells named "sh"
 * in between do not count, nor processes without a name.
 *
 * `buffer` has `size` bytes, all of which are overwritten: with the name, cut to fit, and zeros
 * behind it. The name is that of /proc/PID/comm: up to 15 bytes, which a program may choose itself
 * (PR_SET_NAME of prctl(2)), without the blanks, tabs, line feeds and carriage returns at its ends.
 *
 * Returns
 *      0   the name is in the buffer; or "pidN" with the id N of a shell whose own parent is
 *          process 1, or outside of this pid namespace, or cannot be found out (see
 *          get_parent_pid())
 *     -1   there are three shells, one above the other; or a process that was asked for is not
 *          there any more, or is outside of this pid namespace: the buffer holds zeros alone. For a
 *          NULL buffer or a size below 2 nothing is written.
 */
RK_API int get_caller(char* buffer, size_t size);

/*
 * The first argument of the process `pid`, its own name as a rule; up to 255 bytes.
 *
 * Kept for compatibility: of one that begins with "sh" the text behind these two bytes is returned,
 * so that the name of a shell is empty, and that of "shutdown" is "utdown".
 *
 * Returns a text of the library's, valid until the next call from any thread. "" when there is no
 * such process, and for one without arguments, such as a thread of the kernel's or one that has
 * ended. Never NULL.
 */
RK_API const char* procname(int pid);

#ifdef __cplusplus
}

/*
 * One process of a list. Programs get them from ProcessControl; the virtual members of both classes
 * stay in this order.
 */
class RK_API ProcessEntry {
 public:
  /* A valid entry with a copy of `name` and no next. NULL counts as "". Throws std::bad_alloc. */
  ProcessEntry(int pid, const char* name);

  /* Frees the name, and not the entries that follow. */
  virtual ~ProcessEntry();

  ProcessEntry(const ProcessEntry&) = delete;
  ProcessEntry& operator=(const ProcessEntry&) = delete;

  virtual int getPid() const;

  /* The entry's own, and never NULL. */
  virtual const char* getName() const;

  /*
   * The entry that follows; NULL behind the last one. Setting it is for the owner of the list: a
   * ProcessControl frees what it finds linked, and nothing else.
   */
  virtual ProcessEntry* getNext() const;
  virtual void setNext(ProcessEntry* next);

  /* Whether an update has found the process, or this has been set. See refresh(). */
  virtual void setValid(bool valid);
  virtual bool isValid();

 private:
  int pid_;
  char* name_;
  ProcessEntry* next_;
  bool valid_;
};

/*
 * The processes that were there at the last refresh(), as a list of entries that the object owns.
 *
 * An entry that was returned stays where it is until its process is found to be gone by
 * refresh(true); and until refresh(false), cleanup() or the destructor.
 */
class RK_API ProcessControl {
 public:
  /* An empty list. */
  ProcessControl();

  /* Frees the list with cleanup() of this class: a derived class's own is not called. */
  virtual ~ProcessControl();

  ProcessControl(const ProcessControl&) = delete;
  ProcessControl& operator=(const ProcessControl&) = delete;

  /*
   * Makes the list anew (false), in the order in which /proc lists the processes; or brings it up
   * to date (true): entries of processes that are gone are freed, those of the others stay as they
   * are, and the new ones follow, in the order of /proc. Before making it anew it calls cleanup()
   * as a derived class may have it.
   *
   * The name of a process is its command line, with single blanks between the arguments ("sleep
   * 10"), as much of it as is in its first 255 bytes; a single blank at their end is left out. It
   * is "[PID]" where there is no command line: for threads of the kernel's, processes that have
   * ended and are not yet waited for, those that end just now, and those that are about to become
   * another program (execve(2)).
   *
   * Kept for compatibility:
   *   - An update goes by ids alone. A process that has become another program keeps its old name,
   *     as does a new process that has got the id of one that is gone.
   *   - Processes without a command line are not counted when they come, but are when they go: see
   *     getNumberOfProcesses().
   *
   * Without a /proc, and with no descriptor or memory left for it, the list is empty (false), or as
   * it was, with no entry valid (true). Where the kernel fails to list it to the end, all that it
   * has not listed is gone. A process whose command line cannot be opened is not listed, unless it
   * is already.
   *
   * An update takes about the time of listing /proc: it looks for each process first where the one
   * before it was found. Reading the names of new processes takes longer by far.
   *
   * Throws std::bad_alloc without memory for an entry; the list holds what has been found by then,
   * and on an update also what has not, with no entry of those valid.
   */
  virtual void refresh(bool update);

  /*
   * The next entry behind `after`, from the head of the list where that is NULL, whose name begins
   * with `name`: "ssh" finds ssh and sshd. NULL as a name is the beginning of every name. Returns
   * NULL where there is none, and when `after` is not in the list. It is only compared: one that
   * has been freed since is not in the list, unless a new entry has come to the same place.
   */
  virtual ProcessEntry* getNextProcessEntryByName(const char* name,
                                                  const ProcessEntry* after) const;

  /* How many entries have a name that begins with `name`; how many there are at all for NULL. */
  virtual int getNumberOfProcessesByName(const char* name) const;

  /* The first entry with the id `pid`; NULL where there is none. */
  virtual ProcessEntry* getProcessEntryByPid(int pid);

  /*
   * After refresh(false), how many of the entries are of processes that have a command line. Each
   * update adds the new ones of that kind, and subtracts all that are gone, of whatever kind: the
   * result becomes too small by one for each process without a command line that goes, and may be
   * negative. For an exact number count with getNumberOfProcessesByName(NULL).
   */
  virtual int getNumberOfProcesses() const;

  /* Frees all entries. The list is empty and the number 0. */
  virtual void cleanup();

  /* Whether all characters of `text` are digits, "0" to "9": true for "", false for NULL. */
  bool isNumeric(const char* text) const;

 private:
  ProcessEntry* first_;
  int number_of_processes_;
};

#endif

#endif
