/*
 * Locks between processes: what only one of the router's programs may do at a time.
 *
 *     sem_handle *lock = sem_create("/lease-file");        (NULL: no memory)
 *     int result = sem_lock(lock);                         (waits until the lock is free)
 *     if (result == EOWNERDEAD) repair_lease_file();       (held; the last owner died at its work)
 *     else if (result != 0) return result;                 (not held; -1: the log has said why)
 *     write_lease_file(); sem_unlock(lock); sem_release(lock);
 *
 * What to use:
 *
 *                      named lock             CSemaphore                lock directory
 *     functions        sem_*, and in C++      CSemaphore                acquire_lock(),
 *                      CRecursiveSemaphore                              release_lock()
 *     known by         a name, "/lease-file"  a file and a number       a path
 *     excludes         threads                threads                   whoever asks
 *     owner            a thread, which may    none: anybody unlocks     none: anybody releases
 *                      lock several times
 *     owner dies       the next one is told   the lock is free          stays locked
 *     waits            in the kernel          in the kernel             by trying each second
 *     also works in    -                      programs that use semop   shell scripts: mkdir, rmdir
 *
 * Take the named lock unless something speaks for another: it is the fastest by far, and the only
 * one by which the next owner learns that the last one did not come to its end.
 *
 * Users. Semaphore sets and shared memory belong to the user whose process came first, with mode
 * 0600: processes of other users cannot use them, but for root. So it is with the guard, one
 * semaphore set by which all creations of named locks take turns: who creates the first named lock
 * of all since the start of the system decides who can have named locks. Begin with one of root's.
 *
 * Nothing is ever removed: sets and shared memory stay, with the state that they have, until the
 * system restarts or somebody removes them (ipcrm(1); a name "/x" is the file "/dev/shm/x"). Do not
 * while they are in use: those who have the old one and those who make a new one no longer exclude
 * each other.
 *
 * Messages go to syslog with the host program's settings, LOG_ERR unless another level is given.
 * Below, %i stands for the number of the error and %s for its text. Nothing throws.
 *
 * Threads and signals. Several threads may use one object at once, once it is made, but for init().
 * A signal handler that runs during a wait does not end it. A thread that is cancelled
 * (pthread_cancel(3)) finishes its call first. Nothing here is for signal handlers. A child of
 * fork() has its parent's objects, and none of the locks that the parent holds.
 *
 * Nothing here is of <semaphore.h>, the system's header of nearly the same name.
 */
#ifndef RKUTILS_SEMAPHORE_H
#define RKUTILS_SEMAPHORE_H

#include <rkutils/export.h>

#include <sys/types.h>

#ifdef __cplusplus
#include <string>

extern "C" {
#endif

/* ---- Named locks ---- */

/* A named lock as this process has it. */
typedef struct sem_handle sem_handle;

/* What a named lock does for an owner that died. */
typedef struct sem_options sem_options;

/*
 * Options in automatic mode, which is what sem_create() goes by:
 *
 *     mode        who gets EOWNERDEAD holds a lock that
 *     automatic   works on as usual
 *     manual      is lost with its unlock, for everybody and for good (ENOTRECOVERABLE from then
 *                 on), unless it was declared repaired before: makeConsistent() of
 *                 CRecursiveSemaphore. From C there is no way to do that.
 *
 * The mode is not shared: each process goes by its own.
 *
 * Returns NULL without memory. The caller's to give to semopts_release(), which may be right after
 * sem_create_with_options().
 */
RK_API sem_options* sem_options_create(void);

/* Sets the mode. NULL does nothing. */
RK_API void semopt_set_consistent_mode_automatic(sem_options* options);
RK_API void semopt_set_consistent_mode_manual(sem_options* options);

/* Frees options. NULL does nothing. */
RK_API void semopts_release(sem_options* options);

/*
 * The lock with a name, which is made if there is none yet: see CRecursiveSemaphore below, which
 * this is a C form of, for names, messages and what is waited for.
 *
 * Returns a handle for sem_release(). NULL without memory; also, with nothing logged, for a NULL
 * argument, which is an error of the caller's. A lock that cannot be had for another reason is a
 * handle too: with that, all operations give -1.
 */
RK_API sem_handle* sem_create(const char* name);
RK_API sem_handle* sem_create_with_options(const char* name, const sem_options* options);

/* As the operations of CRecursiveSemaphore. With NULL, -1. */
RK_API int sem_lock(sem_handle* handle);
RK_API int sem_trylock(sem_handle* handle);
RK_API int sem_unlock(sem_handle* handle);

/*
 * Frees a handle; the lock stays in the system. NULL does nothing.
 *
 * NEVER while this process holds the lock: see the destructor of CRecursiveSemaphore.
 */
RK_API void sem_release(sem_handle* handle);

/* ---- Lock directories ---- */

/*
 * Makes the directory `path`, up to `tries` times, each failure followed by a second's sleep. Any
 * failure counts, also one that no waiting will end, such as a missing parent. Signals do not
 * shorten the sleep.
 *
 * The directory's mode is hexadecimal 755, octal 3525, less the umask: r-x-w-r-x with the sticky
 * bit, where one expects rwxr-xr-x; the set-group-ID bit goes by the parent, see mkdir(2). Kept for
 * compatibility.
 *
 * Returns 0 when the directory was made; with a negative number of tries at once and without making
 * anything, kept for compatibility. -1 when all tries failed, `tries` seconds after the call; at
 * once for 0 tries, and for a NULL path. Nothing is logged.
 */
RK_API int acquire_lock(const char* path, int tries);

/*
 * Removes what has the name `path`, an empty directory or a file, if it may be read (access(2): by
 * the real user). Whose it is does not count. NULL does nothing. Returns 0 in any case, also when
 * nothing was removed.
 */
RK_API int release_lock(const char* path);

#ifdef __cplusplus
}

/* ---- Semaphores of System V ---- */

/*
 * A lock that is found by a file and a number: a semaphore set of System V with the key that
 * ftok(3) makes of both, with one semaphore, which is 1 while the lock is free. It belongs to no
 * process or thread; who unlocks it need not have locked it. Between processes of one program, that
 * means: lock and unlock in the same process, once each.
 *
 * Each lock() and unlock() is undone at the process's end (SEM_UNDO in semop(2)): what it still
 * holds is free then. So an unlock() in another process than the lock() counts twice in the end:
 * from then on two may have the lock at once.
 *
 * The key is made of parts of the file's inode and device number and of the number's low eight
 * bits: it changes when the file is replaced by another one, and two files may have the same.
 */
class RK_API CSemaphore {
 public:
  /*
   * `pathname` is a file that exists as long as the lock is in use; it is not even opened.
   * `projectId` counts with its low eight bits, which must not all be 0.
   *
   * Nothing is looked for yet. An empty path and the number 0 are logged, and fail in init():
   *     CSemaphore - constructed with empty pathname!
   *     CSemaphore - constructed with invalid projectID!
   * Without memory for it, the path is empty.
   */
  CSemaphore(std::string const& pathname, int projectId);

  /* Frees the path only: the lock stays in the system, held if it is held. */
  virtual ~CSemaphore();

  CSemaphore(const CSemaphore&) = delete;
  CSemaphore& operator=(const CSemaphore&) = delete;

  /*
   * Finds the semaphore set, or makes it, free and with mode 0600. Before this has succeeded the
   * others fail. One that fails leaves an earlier one's set in use.
   *
   * Where another process has made the set but not yet freed it, waits for that up to 100 ms. By
   * then that process is taken for dead, and the set is freed here: by one of all who wait, holding
   * an advisory lock (flock(2)) on the library's file "/usr/lib/librkutils.so.1.0.0", for which it
   * waits up to a second more. Who makes the set waits for that as long, but does without it then.
   *
   * Returns 0; or -1 with one of these:
   *     CSemaphore::init() - ftok failed (errno=%i) for file PATHNAME
   *         the file is not there or not to be reached, or the number's low eight bits are 0, or
   *         the path holds a NUL (both EINVAL)
   *     CSemaphore::init() - unable to obtain semaphore-set - errno=%i
   *         EACCES: it is another user's; ENOSPC: no more sets; EIDRM: it was removed meanwhile; or
   *         what prevents the advisory lock (EAGAIN: another program holds it)
   *     CSemaphore::init() - semop() failed - unable to initialize semaphore - errno=%i
   */
  int init();

  /*
   * Waits until the lock is free, however long, and takes it. Waits for ever if this process has it
   * already: nobody is its owner, also not this thread.
   *
   * Returns 0; or -1 with one of these:
   *     CSemaphore::lock() - invalid semId!                  no init() has succeeded
   *     CSemaphore::lock() - semop failed, errno=%i          EIDRM, EINVAL: the set was removed
   */
  int lock();

  /*
   * Frees the lock, for one of those that wait. Nothing prevents unlocking a free one: as many may
   * then have it at once as it was unlocked too often.
   *
   * Returns 0; or -1 with one of these:
   *     CSemaphore::unlock() - invalid semId!                no init() has succeeded
   *     CSemaphore::unlock() - semop() failed errno=%i       EIDRM, EINVAL: the set was removed;
   *                                                          ERANGE: unlocked 32766 times too often
   */
  int unlock();

 private:
  friend class CRecursiveSemaphore;

  std::string pathname_;
  int project_id_;
  key_t key_; /* -1 before init() */
  int id_;    /* -1 while there is no set */
};

/* ---- Named locks, in C++ ---- */

/*
 * A lock that is found by its name: a mutex in POSIX shared memory, of the kind that processes
 * share, that its owner may lock again, and that tells when its owner has died (pthread(7);
 * PTHREAD_PROCESS_SHARED, PTHREAD_MUTEX_RECURSIVE, PTHREAD_MUTEX_ROBUST). Its owner is a thread.
 */
class RK_API CRecursiveSemaphore {
 public:
  /* What happens to a lock whose owner died: see sem_options_create(). One byte. */
  class CSemaphoreOptions {
   public:
    enum eConsistentMode { CONSISTENT_MODE_AUTOMATIC = 0, CONSISTENT_MODE_MANUAL = 1 };

    /* Automatic. */
    CSemaphoreOptions() : automatic_(true) {}

    void SetConsistentMode(eConsistentMode mode) { automatic_ = mode == CONSISTENT_MODE_AUTOMATIC; }
    eConsistentMode GetConsistentMode() const {
      return automatic_ ? CONSISTENT_MODE_AUTOMATIC : CONSISTENT_MODE_MANUAL;
    }

   private:
    bool automatic_;
  };

  /*
   * Opens the lock `name`, or makes it: "/" and one component of up to 254 bytes (shm_open(3)). The
   * options are copied; without them the mode is automatic.
   *
   * Creations take turns, all processes and names alike, by a CSemaphore, the guard, on the
   * library's file "/usr/lib/librkutils.so.1.0.0" and the number 1. This waits for it as long as
   * another process holds it, in its own creation.
   *
   * Of an object that is there already:
   *     it has the size of a mutex           it is used as it is; whoever can write it must be
   *                                          trusted to have put a mutex there
   *     it is empty, or all zeros            left by a creator that died: it is made a new lock
   *     it has another size                  it cannot be used
   *
   * A new lock is logged, LOG_DEBUG:
   *     created recursive semaphore "NAME"
   * A lock that cannot be had leaves an object whose operations give -1. There is a message, which
   * without memory is none of these or missing:
   *     recursive-semaphore: unable to init guarding semaphore     behind one of CSemaphore's
   *     recursive-semaphore: unable to lock guarding semaphore     likewise
   *     recursive-semaphore: unable to open shared memory - errno=%s
   *         also for a name that holds a NUL (EINVAL)
   *     recursive-semaphore: unable to ftruncate shared memory - errno=%s
   *         the object cannot get its size or the file system is full; it is removed, and the
   *         message before comes behind this one, with the same error
   *     recursive-semaphore: mmap failed - errno=%s
   *         also for an object that cannot be used (of another size: EINVAL)
   *     recursive-semaphore: unable initialize attributes
   *     recursive semaphore: unable to set attribute "robust"
   *     recursive-semaphore: unable to set attribute "recursive"
   *     recursive-semaphore: unable to initialize mutex - errno=%s
   *         with these four, the memory stays mapped until the process ends
   */
  explicit CRecursiveSemaphore(std::string const& name);
  CRecursiveSemaphore(std::string const& name, CSemaphoreOptions const& options);

  /*
   * The lock itself stays in the system.
   *
   * NEVER destroy an object while a thread of this process holds the lock through it. It stays
   * locked for ever then, for all processes, also when this one has ended; and the C library goes
   * on using the memory, which is no longer there: the thread's next robust mutex crashes it.
   */
  virtual ~CRecursiveSemaphore();

  CRecursiveSemaphore(const CRecursiveSemaphore&) = delete;
  CRecursiveSemaphore& operator=(const CRecursiveSemaphore&) = delete;

  /*
   * Waits until the lock is free or this thread's own, however long, and takes it. Each must be
   * followed by an unlock() by the same thread.
   *
   * Returns
   *     0                 held
   *     EOWNERDEAD        held; the last owner died holding it, so what it protects may be half
   *                       done. In automatic mode the lock works on; if that cannot be arranged:
   *                           recursive-semaphore: make consistent failed - errno=%s
   *                       In manual mode call makeConsistent() once all is repaired.
   *     ENOTRECOVERABLE   not held: after such a death it was unlocked as it was. It stays so.
   *     EAGAIN            not held once more: this thread has it too many times
   *     -1                the object has no lock, see the constructor
   */
  int lock();

  /* As lock(), without waiting: EBUSY where another thread or process holds it. */
  int trylock();

  /*
   * Gives the lock back, the last of a thread's unlocks for others. Returns 0; EPERM: this thread
   * does not hold it; -1: the object has no lock.
   */
  int unlock();

  /*
   * Declares repaired what the lock protects. Returns 0; EINVAL: the lock is not one that was got
   * with EOWNERDEAD in manual mode (some C libraries say EPERM once it is ENOTRECOVERABLE); -1: the
   * object has no lock.
   */
  int makeConsistent();

 private:
  friend struct ::sem_handle;

  class RK_LOCAL private_impl;
  private_impl* impl_;
};

#endif

#endif
