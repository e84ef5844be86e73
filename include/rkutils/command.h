/*
 * Running other programs, shell commands above all; restarting the device and switching it off;
 * temporary files.
 *
 *     char release[64];
 *     int length = eval_command("uname -r", release, sizeof release);
 *     if (run_command("/usr/sbin/update-leases", 0) != 0) syslog(LOG_WARNING, "leases are old");
 *     int daemon = run_command("exec /usr/sbin/watch-uplink", 1);    (runs on by itself)
 *     if (daemon < 0) system_reboot(0, 0);
 *
 * What to use: eval_command() for a command's output, run_command() for its status or to leave it
 * running, _exec_command() where no shell is to read the arguments. A shell reads what is put into
 * its command: a name, number or text that comes from outside belongs into an argument of
 * _exec_command() instead, or must be checked first.
 *
 * A program started here finds the caller's environment, user, ignored signals and blocked signals;
 * the working folder "/" and the umask 022, whatever the caller's (but for eval_command(), where it
 * finds the caller's own); and the descriptors that the table at _exec_command() gives (but for
 * eval_command(), where it finds all of the caller's that are not close-on-exec, and its output in
 * place of descriptor 1). Those that are closed are all up to the limit of open files
 * (getdtablesize(3)); a program that has lowered its limit passes on what it has above it.
 *
 * Time. The functions that wait do so for as long as the program runs, without a limit; a signal
 * handler that runs meanwhile does not shorten the wait. Descriptors are closed in one step,
 * however high the limit of open files is; before Linux 5.9, in one for each that is open, and
 * there without a /proc, in one for each that could be.
 *
 * Signals and children. A program that ignores SIGCHLD cannot know how its children end: the
 * waiting functions then fail, after the program has run. So they may where something else in the
 * program waits for all children: another thread, or a handler of SIGCHLD.
 *
 * Threads. All may be called from several threads at once, but for create_tmpfile(), whose result
 * is the library's. Waiting ones begin the program without copying the caller's memory, which also
 * means that functions of pthread_atfork(3) are not called. A thread that is cancelled
 * (pthread_cancel(3)) finishes its call first. Nothing here is for signal handlers.
 */
#ifndef RKUTILS_COMMAND_H
#define RKUTILS_COMMAND_H

#include <rkutils/export.h>

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Command lines ---- */

/*
 * Splits a command line into its words, which spaces, tabs and newlines separate. A single or
 * double quote that begins a word holds it together up to the next quote of the same kind, where it
 * ends, whatever follows: 'ab'cd is the two words ab and cd, and '' is an empty one. Any other
 * quote is a character like others, as in it's, and so are backslashes, "$", "*" and the rest.
 *
 * `input` is the line. `argv` and `argc` get the vector of words and their number. The vector has
 * 255 slots, the unused ones NULL, so one of fewer than 255 words ends with a NULL and can be given
 * to execv(3); one of 255 words has no NULL at its end. Each word has strlen(input) + 1 bytes, all
 * zero behind it. Release the vector with freeargv().
 *
 * Returns 0, with an empty or blank line too, which has no words; or -1: more than 255 words, a
 * quote that is not closed, no memory, an argument NULL. Then nothing is stored. Nothing is logged.
 */
RK_API int makeargv(const char* input, char*** argv, int* argc);

/* Frees a vector of makeargv(), all its 255 slots. NULL does nothing. */
RK_API void freeargv(char** argv);

/* ---- Programs ---- */

/*
 * Runs a shell command as popen(3) does and keeps what it writes to its standard output, in
 * `buffer` of `size` bytes: at most size - 2 characters of it, for one byte is left unused beside
 * the NUL's (sizes 1 and 2 keep nothing). What does not fit is read and dropped. Standard input and
 * error are the caller's, and so are the folder and the umask. Output comes line by line, or 1023
 * bytes at a time: a NUL in it hides what follows in such a piece, which is not counted either.
 *
 * Returns the number of characters that the command wrote, more than the buffer holds if it was
 * cut, INT_MAX at most; or -1: an argument NULL, an empty command, a size of 0 (`buffer` is
 * untouched by these); no pipe or no child; a command that exits with another status than 0
 * (`buffer` has its output); an ignored SIGCHLD. A command that a signal ends is no failure, but a
 * shell that starts one and tells of it is: its status is then 128 and more. Nothing is logged.
 *
 * Waits for the command's end, and for that of what it leaves running with its output.
 */
RK_API int eval_command(const char* command, char* buffer, size_t size);

/*
 * Runs the program `path`, with `arg0` and what follows as its arguments: at most 15 more, and a
 * NULL at the end, written as (char*)NULL. With a NULL for `arg0` there are no arguments, and none
 * is looked for behind it. By convention `arg0` is the program's name.
 *
 *     mode    what is done                    the program's descriptors       result
 *     0       run, wait for its end           the caller's 0, 1 and 2         exit status
 *     1       run as a process of its own     0, 1 and 2 are "/dev/null"      its process id
 *     2       as 0                            the caller's 0, 1 and 2         exit status
 *     others  run, wait for its end           none                            exit status
 *
 * Mode 1 makes it a process in another session than the caller's and without a terminal, which is
 * not a child of the caller's: nobody is told how it ends. It returns as soon as the process is
 * there, and that may be before the program is.
 *
 * A program that cannot be run is not reported but comes as an exit status: the number of the
 * error, 2 (ENOENT) for a path that does not exist. In mode 1 its process id comes all the same.
 *
 * Returns the result; or -1, with these messages:
 *   - LOG_ERR "Too many arguments": more than 15 behind `arg0`; nothing is run
 *   - none: `path` is NULL or empty; or, in mode 1, the process between the caller and the program
 *     was killed, before it made the program's or could tell its id
 *   - LOG_ERR "child didn't exit. error: %s", with the text of the error 0, and LOG_DEBUG "child
 *     terminated by signal: %i ": a signal ended it (modes but 1)
 *   - LOG_ERR "Waiting for child process failed: %s (%d)" with the error's text and number: the
 *     program has run, but how it ended cannot be known (modes but 1; in mode 1 there is the
 *     message but no failure)
 *   - mode 1 only, from here on: LOG_INFO "Shared memory temporary not available (try %d/%d)", ten
 *     times: other detached starts are under way, see below
 *   - LOG_ERR "Shared memory allocation failed: %s (%d)" with the error's text and number: no
 *     memory for the process id to come back in, or no key for it: the working folder may not be
 *     looked into
 *   - LOG_ERR "second fork failed": the program was run and waited for instead
 *
 * When there can be no child at all, LOG_ERR "fork failed" is logged and the calling process does
 * what the child was to do: it closes its descriptors and becomes the program, which thus runs in
 * any case, and the call does not return. (In mode 1 it begins the program, if it can, and exits
 * with status 0.) Kept for compatibility.
 *
 * Detached starts take turns. The process id comes back in System V shared memory of the key
 * ftok(".", 52), which all processes share whose working folder is the same, or has a number like
 * its. While another holds it, a start tries ten times, 100 ms apart. A segment is then taken away
 * if nobody has it attached and its creator is dead. None is left behind.
 */
RK_API int _exec_command(int mode, const char* path, const char* arg0, ...);

/*
 * Runs `command` with "/bin/sh -c". With a `background` of 0 it waits for its end and returns its
 * exit status; the command has the caller's descriptors 0, 1 and 2. With any other it leaves it
 * running, detached, and returns the shell's process id.
 *
 * These are modes 0 and 1 of _exec_command(), which says what is logged and when the result is -1.
 * With NULL, the shell complains about the missing command and that is the exit status.
 */
RK_API int run_command(const char* command, int background);

/* ---- The device ---- */

/*
 * Restarts the device. If "/nvstatus/skip-reboot" can be read, only LOG_ERR "skipping reboot" is
 * logged. Otherwise, if the site has an executable "/usr/local/sbin/system-reboot", it is started
 * detached, as "/usr/local/sbin/system-reboot FIRST SECOND" with the two numbers, to which the
 * library gives no meaning, and the function returns 100 ms later, whether that worked or not.
 * Otherwise the kernel restarts the device at once: nothing is written to disk or brought to an
 * end first, and the function returns only to those who may not do that.
 *
 * access(2) tells what can be read and executed: for the real user. For messages of the start, and
 * for how long it may have to wait its turn, see _exec_command().
 */
RK_API void system_reboot(int first, int second);

/*
 * Switches the device off, as system_reboot() restarts it: with "/nvstatus/skip-poweroff", LOG_ERR
 * "skipping poweroff" and "/usr/local/sbin/system-poweroff".
 */
RK_API void system_poweroff(int first, int second);

/* ---- Temporary files ---- */

/*
 * Creates an empty file with a name that no other has, mode 0600. `name_template` is its path, with
 * at most 1023 bytes, and ends with six X's, in whose place other characters come (mkstemp(3)).
 *
 * Returns the path of the file, in a buffer that belongs to the library and that the next call
 * overwrites; the file is closed, and the caller's to remove. Or NULL: a template that is NULL,
 * empty or longer, and then nothing has changed; or the file cannot be created (errno). Nothing is
 * logged.
 *
 * Beware: when the file cannot be created, what has the template's name is removed. A template
 * without its X's fails so and names a file that may exist: it is gone then.
 */
RK_API char* create_tmpfile(const char* name_template);

#ifdef __cplusplus
}
#endif

#endif
