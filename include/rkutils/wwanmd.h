/*
 * Client of the modem daemon, wwanmd: text commands to a cellular card, and their replies.
 *
 *     wwanmd_connection *modem = wwanmd_init(0, "uplinkd");
 *     wwanmd_buffer buffer = {"signal", 6, 30};            (wait up to 30 seconds)
 *     if (modem != NULL && wwanmd_command(modem, &buffer) == 0) puts(buffer.data);
 *     wwanmd_free(modem);
 *
 * Each card has a daemon of its own. A connection is a stream socket to "/var/run/wwanmd%d/server",
 * with the card's index for %d. When it is opened it introduces the application to the daemon with
 * the command "init" and the application's name, and then carries one command and one reply at a
 * time. A reply begins with
 *     "OK"     done; what follows is the answer
 *     "ERROR"  not done; what follows says why
 *     "BUSY"   the daemon is at it and will send another reply
 * and is taken as it comes: what one recv(2) gives is one reply.
 *
 * Cards are numbered 0 to 5 and 10 to 15. Every function refuses others, 6 to 9 among them, and
 * logs LOG_ERR "invalid wwan card %d".
 *
 * Failures. A caller that wants to try again does so with the connection it has. One that fails
 * repeatedly is opened anew, with a new introduction:
 *   - at once when a command cannot be sent because the daemon has closed its end;
 *   - at the fourth failure in a row. "OK" ends the row, and a command that could be sent does, so
 *     it is calls of wwanmd_recv() or of wwanmd_send() in a row that count, not commands that are
 *     not answered;
 *   - at the seventeenth time that the daemon is busy to the last, without an "OK" in between.
 * The function that this happens in reports its own failure, whatever becomes of the new
 * connection. One that could not be opened is closed, and the next exchange opens it. What happens
 * is logged through syslog at LOG_DEBUG, in the texts given below; nothing is printed. A NULL
 * connection or buffer gives -1, and nothing else happens.
 *
 * Reset. The daemon marks a card that it resets by the file "/tmp/status/wwanmd/card%d/reset". A
 * call that finds the marker looks at it up to five times, and lets a second pass after each. When
 * it has gone the call goes on, after that second. When the fifth look finds it too, the connection
 * is closed, five seconds after the first, and the call fails with -11: LOG_DEBUG "wwanmd%d is
 * currently in reset". Opening, sending and receiving each look.
 *
 * Time. Between two commands on a connection there are at least 300 ms, the introduction of a
 * connection that is opened again included; sending sleeps for what is missing. (For the exception
 * see wwanmd_send().) Sending and receiving each wait up to the buffer's timeout of real time. A
 * signal handler that runs meanwhile shortens neither waits nor pauses. Connecting waits without a
 * limit while the queue of a hung daemon is full.
 *
 * Threads and signals. A connection belongs to one thread at a time; nothing is locked. Around the
 * waits SIGPIPE is ignored in the whole process, and afterwards it has its default action, whatever
 * it had before: a program that ignores SIGPIPE must do so again after each call. For the exception
 * see wwanmd_recv(). Of several threads that wait at once the first to end sets the default for
 * all, and a daemon that dies then ends a program in which another is sending. A thread that is
 * cancelled (pthread_cancel(3)) finishes its call first, with all its waits and pauses.
 *
 * Children. A connection is not for a forked child: both would take each other's replies. The
 * socket is closed on exec.
 *
 * Texts. Commands are lines, and sent as they are: keeping newlines out of what comes from outside
 * is the caller's business, for each begins another command.
 */
#ifndef RKUTILS_WWANMD_H
#define RKUTILS_WWANMD_H

#include <rkutils/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A connection to the daemon of one card. */
typedef struct wwanmd_connection wwanmd_connection;

/* A command on the way out, and its reply on the way back. */
typedef struct wwanmd_buffer {
  char data[8192]; /* the command; then what follows the reply's first word, zeros after it */
  int length;      /* bytes in data; -1 when waiting for a reply has brought none of the three */
  int timeout;     /* seconds to wait, for sending and for the reply: less than 5 is 5, more than
                      300 is 300 */
} wwanmd_buffer;

/*
 * Makes a connection to the daemon of `card` in the name of `application_name`, 1 to 15 characters,
 * and opens it as wwanmd_open() does.
 *
 * This sets the program's log to the name, with LOG_PID and LOG_NDELAY, and the facility LOG_USER
 * (openlog(3)). The C library may keep the pointer for all later messages: the text must stay as it
 * is for as long as the program logs. A text constant is best.
 *
 * Returns the connection, to be released with wwanmd_free(). NULL when the card is invalid; for a
 * name that is NULL, empty or longer, LOG_DEBUG "invalid app name for wwanmd connection"; without
 * memory, LOG_DEBUG "no mem for wwanmd connection"; or when it cannot be opened.
 */
RK_API wwanmd_connection* wwanmd_init(int card, const char* application_name);

/*
 * Opens the connection, closing it first when it is open, and introduces the application. Failures
 * and exchanges with a busy daemon are counted from 0 again. The introduction is a command like any
 * other, with a timeout of 5 seconds; only that its failures never open the connection anew.
 *
 * Returns
 *     0  the connection is open
 *   -11  the card is in reset, LOG_DEBUG "wwanmd%d is currently in reset"
 *    -1  the connection is NULL; or, with the cause in parentheses, LOG_DEBUG
 *        "can't open socket to wwanmd%d (%s)",
 *        "can't bind to wwanmd%d (%s)": no daemon listens (it connects, the text is an old one), or
 *        "cannot initialize wwanmd%d (%s)": the introduction failed. The messages of sending and
 *        receiving stand before it, "command failed" too when it was the reply. The cause is the
 *        last failed system call's, or that time is up. A reply that is not OK has none, nor has
 *        a reset that begins meanwhile; the C library calls that "Success" or the like.
 * and after -1 and -11 the connection is closed.
 */
RK_API int wwanmd_open(wwanmd_connection* connection);

/*
 * Closes the socket, if it is open. The connection stays, and the next exchange opens it again.
 * NULL does nothing.
 */
RK_API void wwanmd_close(wwanmd_connection* connection);

/*
 * Closes and frees the connection. NULL does nothing. The log keeps its name.
 */
RK_API void wwanmd_free(wwanmd_connection* connection);

/*
 * Sends the first `length` bytes of `data` as a command, after opening the connection when it is
 * closed. A command that does not end with a newline gets one: `data` and `length` are changed. A
 * length of 0 so sends a newline alone, and a command of 8190 bytes that has got its newline is too
 * long to be sent again. What the daemon has sent unasked before that is read and thrown away, 8191
 * bytes at most: LOG_DEBUG "flushed %d bytes from wwanmd%d before sending".
 *
 * When this opens the connection, the command follows the introduction without a pause.
 *
 * Returns
 *     0  all bytes are on their way
 *   -11  the card is in reset, LOG_DEBUG "wwanmd%d is currently in reset"; the connection is closed
 *    -1  an argument is NULL; the connection cannot be opened, in reset too; the length is negative
 *        or 8191 and more, LOG_DEBUG "buffer length exceeded", nothing is sent; or it fails with
 *        LOG_DEBUG
 *        "sending to wwanmd%d timed out" and "cannot send command to wwanmd%d",
 *        "cannot send command to wwanmd%d" alone when waiting is not possible, or
 *        "could not send %d bytes to wwanmd%d (%s)", with "faced stalled wwanmd%d" when the daemon
 *        has closed its end,
 *        and then "sending to wwanmd%d failed (%d failures)". At the fourth failure in a row, which
 *        a stalled daemon's always counts as, the connection is opened anew.
 */
RK_API int wwanmd_send(wwanmd_connection* connection, wwanmd_buffer* buffer);

/*
 * Waits for a reply, after opening the connection when it is closed. `timeout` is for the reply
 * itself and all "BUSY" before it, of which up to 20 are waited through. Each is logged as
 * LOG_DEBUG "wwanmd%d is busy, remaining timeout is %lu.%lus", with seconds and microseconds (which
 * have no leading zeros: "4.50s" are four seconds and 50 microseconds).
 *
 * `data` and `length` get what follows the first word, NULs and newlines too; all bytes after it
 * are zero, so that it is a text. 8191 bytes of a reply are taken, its word included; what is
 * longer comes as the next one.
 *
 * Returns
 *     0  "OK": the text is the answer
 *   -11  the card is in reset, LOG_DEBUG "wwanmd%d is currently in reset"; the connection is closed
 *    -1  an argument is NULL; the connection cannot be opened, in reset too; or
 *        "ERROR": the text says why,
 *        "BUSY" for the 21st time, or with less than a second left: LOG_DEBUG "wwanmd%d is busy",
 *        or LOG_DEBUG
 *        "recv from wwanmd%d timed out",
 *        "couldn't read from wwanmd%d (%s)": it failed, or, with the text for no error, the daemon
 *        has closed its end; followed by "faced stalled wwanmd%d" for a broken pipe, or
 *        "invalid response received from wwanmd%d": it begins with none of the three words.
 *        After all but "BUSY" comes "receiving from wwanmd%d failed (%d failures)", and the fourth
 *        failure in a row opens the connection anew; after "BUSY" the seventeenth in a row does.
 *
 * When the connection cannot be opened, and in reset, SIGPIPE stays ignored. After everything else
 * but refused arguments it has its default action; only that any function that opens the connection
 * leaves SIGPIPE ignored too when it finds the card in reset between introduction and reply.
 */
RK_API int wwanmd_recv(wwanmd_connection* connection, wwanmd_buffer* buffer);

/*
 * An exchange: opens the connection when it is closed, sends the command and waits for its reply,
 * which comes back in the same buffer, as wwanmd_send() and wwanmd_recv() do. `timeout` is for each
 * of the two.
 *
 * Returns 0 when the daemon has answered "OK"; otherwise -1, in reset too, after the messages of
 * what failed, and LOG_DEBUG "command failed" when it was the reply.
 */
RK_API int wwanmd_command(wwanmd_connection* connection, wwanmd_buffer* buffer);

/*
 * Whether the card is in reset. Waits for its end, up to five seconds, as described above.
 *
 * Returns 1 when the fifth look has found it so too, 0 when it is not, -1 for an invalid card.
 */
RK_API int wwanmd_in_reset(int card);

/*
 * Whether the daemon has suspended the card, which it marks by the file
 * "/tmp/status/wwanmd/card%d/suspended". Does not wait.
 *
 * Returns 1 when it is, 0 when it is not, -1 for an invalid card.
 */
RK_API int wwanmd_is_suspended(int card);

#ifdef __cplusplus
}
#endif

#endif
