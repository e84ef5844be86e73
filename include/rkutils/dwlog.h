/*
 * The persistent log: a small text file of notable events, newest first, for people to look at
 * later. It is not syslog.
 *
 *     dwlog(12, "SIM card changed");
 *
 *     char text[8192];
 *     if (dwlog_read(text, sizeof text) != 0) return -1;
 *     fputs(text, stdout);              (12: 2026-03-01 12:34 SIM card changed)
 *     dwlog_clear();
 *
 * The file is "/var/log/dwlog", mode 0664 after every change. Each entry is a line: its code, ": ",
 * the local time to the minute, a space, and its text. There are at most 33: with each new entry,
 * 32 lines stay of those that were there.
 *
 * Results are 0 for success and -1 for failure. What fails is reported on standard error, not in
 * the log of the system: with perror(3) and one of the short texts given below, such as "rename: No
 * space left on device". errno is then what that says.
 *
 * Who uses the log at the same time. A semaphore of System V with the key that ftok(3) makes of
 * "/etc/fstab" and 'E' is taken for each call, and shared with all programs that know it. Each call
 * frees it before taking it, so one who died with it, or failed and left it locked, keeps nobody
 * from the log; and so it does not keep two from the log for certain. Who finds it taken
 * nevertheless, for a whole second, frees it again.
 *
 * Those of this library who add or clear therefore also have an advisory lock (flock(2)) on the
 * folder "/var/log" meanwhile. The kernel ends it with its holder, so whoever is killed, at
 * whatever point, holds up nobody (unless a child that another of its threads has just forked lives
 * on with the descriptor). A new log is written beside the old one, as
 * "/var/log/dwlog.tmp", and is on the medium when it takes its place: at any time, also after a
 * loss of power, there is the old log or the new one, whole.
 *
 * Blocking. Adding and clearing wait up to ten seconds for others who do so. They look for their
 * turn every millisecond; who comes while others wait lets them look first. Beyond that each
 * function waits for the semaphore, as said, and for the medium: adding until it has the new log.
 *
 * Threads and signals. Several threads may call these functions at once. What signals interrupt is
 * done again. A thread that is cancelled (pthread_cancel(3)) finishes its call first. Nothing here
 * is for signal handlers. Every descriptor is close-on-exec. No memory is allocated, but for what
 * the C library may need for the time zone and for perror(3).
 */
#ifndef RKUTILS_DWLOG_H
#define RKUTILS_DWLOG_H

#include <rkutils/export.h>

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Adds an entry. `message` may have any length. It is written as it is: keep line feeds out, each
 * begins a new line of the log. It should be short: a line of more than 1023 bytes is divided when
 * the next entry comes, into lines of 1023 that count separately among the 32. Lines that are
 * empty, or begin with a NUL, are dropped then, but have counted.
 *
 * Returns 0; or -1:
 *     nothing is reported          `message` is NULL or empty; nothing is looked at
 *     "ftok"                       there is no "/etc/fstab"
 *     "semget"                     the semaphore can neither be made nor found. Reported twice;
 *                                  once where it cannot be made but is found, which is no failure
 *     "semctl"                     it cannot be freed: it is another user's, not made for all
 *     "lock sem"                   it cannot be taken; or the folder cannot be locked: others have
 *                                  it for ten seconds (EAGAIN)
 *     "localtime", "strftime"      the time cannot be written
 *     "open"                       the folder, or the temporary file, cannot be opened or made; or
 *                                  the log is there and cannot be read
 *     "write", "close"             the temporary file cannot be written, the disk is full, perhaps
 *     "rename"                     it cannot take the log's place
 *     "semop"                      the semaphore cannot be given back; the entry is in the log
 * But for the last case the log is as it was. From "localtime" to "rename" the semaphore stays
 * locked, which is kept for compatibility; see above.
 *
 * Links are not followed: one in the place of the temporary file is removed, and one in the place
 * of the log is replaced by the log, which then begins with the lines of the file that it led to.
 * What of the old log cannot be read, on a damaged medium, counts as its end.
 */
RK_API int dwlog(int code, const char* message);

/*
 * Puts the whole log into `buffer`, of `size` bytes, each line with a line feed behind it; one of
 * more than 1023 bytes in pieces of 1023, each with a line feed. What does not fit is left out: the
 * text ends after size - 2 characters at most. Behind the text the buffer is filled with NULs. A
 * log that is not there or cannot be read is the empty text; a NUL in it hides the rest of its
 * line, or piece.
 *
 * Returns 0; or -1, with the buffer as it was:
 *     nothing is reported          `buffer` is NULL, or `size` is less than 257
 *     "ftok", "semget", "semctl"   as in dwlog()
 *     "semop"                      the semaphore cannot be taken; or cannot be given back, then the
 *                                  buffer has the text
 */
RK_API int dwlog_read(char* buffer, size_t size);

/*
 * Empties the log; one that is not there is created. A link in its place is followed.
 *
 * Returns 0, also when the log cannot be opened for that, which is not reported; or -1:
 *     "ftok", "semget", "semctl"   as in dwlog(); the log is as it was
 *     "semop"                      the semaphore cannot be taken, or the folder cannot be locked;
 *                                  the log is as it was
 *     "unlock sem"                 the semaphore cannot be given back; the log is empty
 */
RK_API int dwlog_clear(void);

#ifdef __cplusplus
}
#endif

#endif
