/*
 * Small chores with files and directories: a line written or read, trees made, copied and deleted.
 *
 *     if (create_directory("/var/lib/backup") != 0) return -1;
 *     if (copy_directory("/etc/network", "/var/lib/backup/network") != 0) return -1;
 *     writefile("/var/lib/backup/version", readfile("/etc/version"));
 *     if (empty_directory("/var/spool/outbox") == 1) dropfile("/var/run/outbox.pending");
 *     delete_directory("/var/lib/backup.old");
 *
 * Results. 0 is success and -1 failure, but what counts as which is each function's own: deleting
 * what is not there succeeds, and much that goes wrong inside a tree is deliberately not reported.
 * Where errno is not mentioned it means nothing. Only writefile() logs.
 *
 * Paths. At most 4095 bytes, and so too for the entries of a tree (the path given, "/", and the
 * names down to the entry): one whose path would be longer counts as one that cannot be examined.
 * No path is ever cut. Relative paths begin in the working folder.
 *
 * Trees are walked by descriptor: links inside a tree are never followed on the way, and a tree
 * that is moved or changed while it is walked does not lead the walk out of it. Where a walk cannot
 * find back up because its place was moved away, it ends and the function fails. Mounts inside a
 * tree belong to it. Trees may be as deep as paths reach; a walk has some 35 descriptors open, or
 * twice that for copying, and all are closed again, whatever happens. The names of the directories
 * on the way are held in memory.
 *
 * Blocking. Nothing waits but for the medium, and for the other end of a FIFO that is written, read
 * or copied. Interrupted system calls are repeated, so that a signal handler ends no such wait.
 * When the reader of a FIFO goes away before all is written or copied to it, there is SIGPIPE, as
 * with any write: that ends the process, unless the program ignores or handles it; then the write
 * has failed.
 *
 * Threads and signals. readfile() returns a buffer that belongs to the library; it is for one
 * thread at a time. All others keep no state; but umask and working folder are the process's. A
 * thread that is cancelled (pthread_cancel(3)) finishes its call first, also one that waits for a
 * FIFO. Nothing here is for signal handlers. Every descriptor is opened close-on-exec.
 */
#ifndef RKUTILS_FILE_H
#define RKUTILS_FILE_H

#include <rkutils/export.h>

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Reading ---- */

/*
 * Codes for callers that want to tell their own callers why a file could not be read: -1 and -10.
 * No function of this library returns them.
 */
RK_API extern const int32_t READFILE_OPEN_FAILED;
RK_API extern const int32_t READFILE_OUT_OF_MEMORY;

/*
 * Reads a file into `buffer` of `size` bytes, at most size - 1 characters of it, and removes white
 * space (space, tab, carriage return, newline) from both ends of the text. What a larger file has
 * beyond that is not read. A NUL in the file hides what follows it in its line; but of a long line
 * only as many characters as there was room for when it came, and the text goes on after them. So
 * /dev/zero, which has no end and fills no buffer, is read for ever.
 *
 * Returns `buffer`, with the text at its front: the empty text when `path` is NULL or the file is
 * not readable (asked with access(2): for the real user) or is a directory; what was read until
 * then when reading fails. A NULL `buffer` or a size of 0 is returned untouched. `path` must not
 * lie in `buffer`, which is emptied first.
 */
RK_API char* readfile_r(const char* path, char* buffer, size_t size);

/*
 * readfile_r() with a buffer of the library's of 1024 bytes: at most 1023 characters. Never NULL.
 *
 * The next call overwrites the result, and so do the library's own functions that read such files:
 * copy what is to be kept. A result is not a path for the next call.
 */
RK_API char* readfile(const char* path);

/* ---- Files ---- */

/*
 * Removes a file that the real user may read, as access(2) tells.
 *
 * Returns 0 if it was readable, also when it then could not be removed (a directory, for instance,
 * which stays); -1 if it was not, and for NULL. Of a link, the link is removed, if what it leads to
 * is readable: one that leads nowhere stays.
 */
RK_API int dropfile(const char* path);

/*
 * Makes `text` and a newline the contents of a file, which is created (mode 0666 less the umask) or
 * emptied first; links are followed. Up to 4095 characters are written with one write(2), as files
 * of /proc and /sys want it. With an empty text, the file is removed instead as by dropfile().
 *
 * Returns 0, for an empty text always; or -1: a NULL argument; the file cannot be opened, logged as
 * LOG_ERR "unable to open %s for writing"; writing or closing failed, which is not logged and
 * leaves a part of the text or none. errno is cleared first: it tells what failed, and is 0 after a
 * text was written, also through interruptions.
 *
 * Not atomic: a reader can find the file empty for a moment.
 */
RK_API int writefile(const char* path, const char* text);

/*
 * Removes a regular file. Links are not followed.
 *
 * Returns 0 when it is removed, when there is nothing at `path` (or nothing to be seen from here: a
 * folder that may not be searched, a path that is too long), and for NULL; or -1: something else
 * than a regular file, or unlink(2) failed (errno).
 */
RK_API int delete_regular_file(const char* path);

/*
 * Copies the contents of a file. The destination is created (mode 0666 less the umask) or emptied
 * first; mode, owner and times are not copied. Links are followed at both ends.
 *
 * Where the destination's folder is not a directory, it is made one first: what is there is
 * unlinked (a file, a dangling link) and create_directory() does the rest. That happens also when
 * it then turns out that the source cannot be opened.
 *
 * Returns 0; or -1: an argument NULL or empty; a destination of more than 4095 bytes (errno
 * ENAMETOOLONG); source or destination cannot be opened. Also -1, with nothing changed: the copy
 * would go onto the source itself, under whatever name, or into it (the source or something in it
 * is the destination's folder, or would be replaced by it); or the folder has yet to be made, and
 * there is a ".." in its path after something that would be made a directory, as in
 * "missing/../file/copy": once there is "missing", that could lead to the source.
 *
 * A copy that ends early, because the disk is full or reading fails, gives 0 all the same: where
 * that matters compare sizes. A directory copies as an empty file. A FIFO is read to its end, which
 * waits for a writer; a device without an end is copied until the disk is full.
 */
RK_API int copy_file(const char* source, const char* destination);

/* ---- Directories ---- */

/*
 * Creates a directory and those above it that are missing, as far as nine levels up. Each one
 * created ends with mode 0555 whatever the umask; those that exist are left as they are. Anything
 * else on the way is removed for a directory: files, and LINKS, also those that lead to a
 * directory. With a slash at the end of `path` the last level is different: a link to a directory
 * is followed and stays, and a file or a link that leads nowhere makes it fail (EEXIST).
 *
 * Returns 0, also when all is there already; or -1 with what was created so far left behind: NULL
 * or empty; a path of more than 4095 bytes (errno ENAMETOOLONG), before anything is changed;
 * mkdir(2) failed (errno), because a tenth ancestor is missing too, for instance. That a mode
 * cannot be set is not reported.
 *
 * Mode 0555 keeps ordinary users from creating anything in the new directory, the next level
 * included: for them only one level can be missing. (Until the final mode is set, for a moment, a
 * directory has mode 0x755 less the umask, hexadecimal: owner and others read, the group writes.
 * Kept for compatibility.)
 */
RK_API int create_directory(const char* path);

/*
 * Deletes a directory with all that is in it, or a single file of whatever kind. A link is removed
 * alone and never followed, with or without slashes at the end of `path`. A file that is named with
 * a slash at the end is not found and stays.
 *
 * Returns 0; or -1: NULL or empty; an entry of the directory itself could not be examined (the
 * directory may not be searched, a path beyond 4095 bytes, another program has just removed the
 * entry), and the rest of it stays; the directory was opened but listing it fails, or there is no
 * memory for its names.
 *
 * 0 does not mean that it is gone: nothing tells of entries that cannot be removed, of a directory
 * that cannot be opened (not readable, no descriptors left) and so cannot be emptied, of
 * subdirectories that cannot be opened, examined or listed, nor of a path that did not exist or
 * that is too long.
 */
RK_API int delete_directory(const char* path);

/*
 * Deletes all that is in a directory, as delete_directory() does, and leaves the directory. `path`
 * itself may be a link to one; links inside are removed and not followed.
 *
 * Returns 0, also for NULL and for what cannot be opened as a directory; or -1 as
 * delete_directory() does.
 */
RK_API int delete_directory_contents(const char* path);

/*
 * Tells whether a directory holds nothing but "." and "..". A link is followed.
 *
 * Returns 1 if it is empty, and for what cannot be opened as a directory (missing, a file, not
 * readable); 0 if it is not, or if listing it fails before that is known; -1 for NULL or the empty
 * text.
 */
RK_API int empty_directory(const char* path);

/*
 * Copies what is in a directory into another, with all subdirectories. The destination is created
 * if it is missing (its own parent must exist), otherwise it keeps what the source does not have.
 * Directories created get mode 0755 whatever the umask (and for a moment 0x755 less the umask,
 * hexadecimal, as in create_directory()); files get copy_file()'s.
 *
 * `source` and `destination` may be links to directories. Inside the source, a link to a file
 * copies as the file's contents, and one to a directory as an empty file, as copy_file() has it;
 * FIFOs and devices are read as there. Inside the destination no link is followed: one in the place
 * of a file or directory to be copied makes the copy fail.
 *
 * Returns 0; or -1, at the first failure and with the rest not copied: an argument NULL; a
 * destination that is empty or has more than 4095 bytes (errno ENAMETOOLONG), cannot be created or
 * given its mode, or exists and is no directory; the source cannot be opened or listed (the
 * destination has been created by then); an entry cannot be examined or copied, a path beyond 4095
 * bytes among them; no memory; or the destination is the source or lies in it, which changes
 * nothing. (Where only a mount shows the destination inside the source, that comes out in
 * the middle.)
 *
 * As with copy_file(), 0 does not tell that the disk was large enough.
 */
RK_API int copy_directory(const char* source, const char* destination);

#ifdef __cplusplus
}
#endif

#endif
