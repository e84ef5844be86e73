/*
 * Client of the configuration daemon, configd: reading and writing configuration values.
 *
 *     configd_connection *config = configd_open();
 *     if (config == NULL) return -1;
 *     configd_add_query(config, "interface.%d.address", 1);
 *     configd_add_query(config, "interface.%d.netmask", 1);
 *     apply(configd_fetch(config, "interface.%d.address", 1),   (asks the daemon for both)
 *           configd_fetch(config, "interface.%d.netmask", 1));  (answered from memory)
 *     configd_close(config);
 *
 * Three ways to use a connection:
 *   - many values: configd_add_query() for each key, then configd_fetch() for each key; the first
 *     fetch asks the daemon for all of them. configd_clear() before the next batch.
 *   - one or a few values: configd_get() with an array of entries.
 *   - changes: configd_set() with an array of entries, as often as needed, then configd_done(),
 *     again while it answers 1 (busy).
 *
 * Failures. A failed exchange of configd_get(), configd_set(), configd_done() or configd_fetch()
 * drops the socket and makes a new one inside the same handle. So a caller that wants to try again
 * simply does so with the handle it has, also after the daemon was away or has been restarted.
 * Failures are logged through syslog, with the host program's settings, in the texts given below;
 * nothing is printed. A NULL handle gives -1 (or "", or nothing) everywhere.
 *
 * The protocol: local datagrams between "/var/run/configd/daemon.sock" and a socket of the client's
 * in the same directory, "client.PID.HANDLE", one datagram a request and one a reply. The client's
 * socket file exists exactly while the connection is open. It has mode 0777 and the sender of a
 * reply is not checked: who can reach the directory can answer.
 *
 * Late replies. A reply is taken for the answer to whatever was asked last. One that comes after
 * its wait has ended answers the next query, the reply to that one the query after it, and so on:
 * the values are those of other keys, and nothing fails. configd_set() and configd_done() fail when
 * the late reply is not one that they expect, and the answer to the request that failed so may then
 * be late in its turn; a late echo of the same batch, and a late "Ready" or "Busy", they take for
 * their own. A new socket does not help against a reply that is still on its way, for it has the
 * old one's path. What helps is __configd_open() once the late reply has come: it drops all that is
 * queued. A program that sees an exchange time out, whichever it was, should wait, call it, and
 * only then ask again.
 *
 * Time. Every reply is waited for up to ten seconds of real time; a signal handler that runs
 * meanwhile does not shorten the wait. Sending waits too, without a limit, while the queue of a
 * hung daemon is full.
 *
 * Threads and signals. A handle belongs to one thread at a time; nothing is locked. Several handles
 * in one process do not disturb each other. While a reply is waited for, SIGPIPE is ignored in the
 * whole process, and afterwards it has its default action, whatever it had before: a program that
 * ignores SIGPIPE must do so again after each exchange. Of several threads that wait at once, each
 * with its own handle, the first to end sets the default for all. A thread that is cancelled
 * (pthread_cancel(3)) finishes its call first, with all its waits: a reply that nobody took would
 * answer the handle's next query.
 *
 * Children. A handle is not for a forked child: both would receive each other's replies, and
 * closing or re-opening it in the child, or a failed exchange there, removes the parent's socket
 * file, so that the parent gets no replies any more. The socket is closed on exec.
 *
 * Texts. Keys and values are sent as they are, and the daemon reads lines: keeping "=" out of keys,
 * and newlines out of both, is the caller's business. A newline in a value begins another
 * assignment, so check what comes from outside.
 */
#ifndef RKUTILS_CONFIGD_H
#define RKUTILS_CONFIGD_H

#include <rkutils/export.h>
#include <rkutils/list.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A connection to the daemon with its list of queries. */
typedef struct configd_connection configd_connection;

/* One key with its value. In an array, an entry with an empty key ends it, and the links are
 * unused. */
typedef struct configd_query {
  list_node links;
  char key[256];    /* NUL-terminated: up to 255 characters */
  char value[1024]; /* NUL-terminated: up to 1023 characters */
} configd_query;

/*
 * Allocates a handle and opens its connection as __configd_open() does. The daemon need not run
 * yet.
 *
 * Returns the handle, to be released with configd_close(); or NULL when there is no memory, logged
 * as LOG_ERR "no mem for configd connection", or when the connection cannot be opened.
 */
RK_API configd_connection* configd_open(void);

/*
 * Closes the connection, removes its socket file, frees the queries and the handle. Pointers that
 * configd_fetch() returned become invalid. NULL does nothing.
 */
RK_API void configd_close(configd_connection* connection);

/*
 * Opens the connection of a handle, closing it first when it is open: a fresh datagram socket,
 * bound to the client's path with mode 0777. A file that is left at that path, of an earlier
 * process with the same id and handle address, is removed if it is readable. The queries stay.
 *
 * Returns 0, or -1 with the connection closed: logged as LOG_ERR "cannot open socket to configd",
 * or LOG_ERR "cannot bind to configd" (the directory is missing or not writable, or the path is
 * taken).
 */
RK_API int __configd_open(configd_connection* connection);

/*
 * Closes the socket and removes its file; the handle and its queries stay. A socket whose
 * descriptor is 1 is not closed but only forgotten: a program that has closed its standard output
 * should open /dev/null in its place before it opens a connection. NULL does nothing.
 */
RK_API void __configd_close(configd_connection* connection);

/*
 * Sends one datagram of `length` bytes to the daemon.
 *
 * Returns the number of bytes sent, or -1: a NULL handle or buffer, a length below 1, a closed
 * connection, or sendto(2) failed (errno ECONNREFUSED or ENOENT when no daemon runs). Nothing is
 * logged and the connection stays as it is. Waits while the daemon's queue is full.
 */
RK_API int configd_send(configd_connection* connection, const void* buffer, int length);

/*
 * Waits up to ten seconds for one datagram and receives it into `buffer` of `size` bytes: at most
 * size - 1 bytes (what is longer is cut), all bytes after them zero.
 *
 * Returns the number of bytes received, 0 for an empty datagram; or -1: a NULL handle or buffer, a
 * size below 1, a closed connection, no datagram in time (the buffer is untouched), or recvfrom(2)
 * failed. Nothing is logged and the connection stays as it is. SIGPIPE is ignored meanwhile and
 * then set to its default, except where the arguments are refused.
 */
RK_API int configd_recv(configd_connection* connection, void* buffer, int size);

/*
 * Asks the daemon for the value of `entry->key` and stores it in `entry->value`, cut to 1023
 * characters. The daemon ends a value with a newline and a NUL, and the reply's last two bytes are
 * dropped as such, whatever they are. An entry that fails keeps its value.
 *
 * Returns 0, or -1: a NULL argument; LOG_ERR "unable to send query to configd"; LOG_ERR "no
 * response from configd (len %d)" with the result of receiving, for a reply of one byte or none
 * (-1: not in time). The connection is not reset. Waits up to ten seconds.
 */
RK_API int configd_prepare_get(configd_connection* connection, configd_query* entry);

/*
 * Asks the daemon for the values of all `entries`, an array ended by an empty key, one after the
 * other; or, when `entries` is NULL, for those of all queued queries in the order they were added.
 * Nothing to ask for is a success. With NULL, the texts that configd_fetch() has returned change; a
 * first configd_fetch() asks for all of them again.
 *
 * Returns 0; or -1 for a NULL handle or at the first failure, logged as by configd_prepare_get(),
 * after the connection was reset. Values fetched before the failure stay in their entries. Waits up
 * to ten seconds for each entry.
 */
RK_API int configd_get(configd_connection* connection, configd_query* entries);

/*
 * Sends all `entries`, an array ended by an empty key, as one batch of assignments, and waits up to
 * ten seconds for the daemon's echo of it. The lines "key=value\n" may come to 16382 characters in
 * all. The last of these is of no use: the echo of a full batch does not fit the reply's buffer, so
 * 16381 can succeed.
 *
 * Returns
 *    0  the daemon echoed the batch
 *   -1  a NULL argument, or no entry; nothing is sent or logged
 *   -2  LOG_ERR "unable to send query to configd"
 *       (no daemon; or a batch that is too long, of which nothing is sent)
 *   -3  LOG_ERR "no response from configd (%d != %d)" with the byte counts received and sent
 *       (they differ; -1 was received when nothing came in time)
 *   -4  LOG_ERR "invalid response from configd"
 *       (another text of the same length; texts are compared up to their first NUL)
 * and after -2, -3 and -4 the connection has been reset.
 */
RK_API int configd_set(configd_connection* connection, const configd_query* entries);

/*
 * Tells the daemon that the changes are complete, and waits up to ten seconds for its answer.
 *
 * Returns
 *    0  "Ready": the changes are in force
 *    1  "Busy": the daemon has not finished; ask again if you want to wait. The connection stays.
 *   -1  a NULL handle
 *   -2  LOG_ERR "unable to send query to configd"
 *   -3  LOG_ERR "no response from configd": an empty datagram came
 *   -4  LOG_ERR "invalid response <%s> from configd" with what came: any other text, "Ready" with a
 *       newline among them, or the empty text when nothing came in time
 * and after -2, -3 and -4 the connection has been reset.
 */
RK_API int configd_done(configd_connection* connection);

/*
 * Queues the key that `format` and its values make (printf(3)), cut to 254 characters. A key that
 * is queued already is not queued again. Keys queued after a fetch are not asked for, and read as
 * "", until configd_clear() has begun a new batch. An empty key may be queued.
 *
 * The key is the format: a key of the program's input belongs behind a "%s".
 *
 * Returns 0; or -1, with nothing logged: a NULL argument, a format that the C library refuses, 512
 * keys queued already, or no memory.
 */
RK_API int configd_add_query(configd_connection* connection, const char* format, ...)
    RK_PRINTF(2, 3);

/*
 * The value of the queued key that `format` and its values make, as for configd_add_query(). The
 * first fetch of a batch asks the daemon for all queued keys, as configd_get() does, waiting up to
 * ten seconds for each; later ones are answered from the handle. When it fails, the next fetch
 * tries again.
 *
 * Returns the value, never NULL: a text of the handle's that stays valid until configd_clear() or
 * configd_close(), and changes only with configd_get() of NULL. Otherwise the empty text, a shared
 * constant:
 *   - an argument is NULL
 *   - the batch fails: LOG_ERR "configd_get failed" after the failure's own message
 *   - the key is not queued, or the C library refuses its format: LOG_DEBUG "key '%s' not found"
 */
RK_API const char* configd_fetch(configd_connection* connection, const char* format, ...)
    RK_PRINTF(2, 3);

/*
 * Frees all queued queries and begins a new batch. Pointers that configd_fetch() returned become
 * invalid. The connection stays. NULL does nothing.
 */
RK_API void configd_clear(configd_connection* connection);

#ifdef __cplusplus
}
#endif

#endif
