/*
 * Raising events: into the event manager's pipe, or over ZeroMQ.
 *
 *     if (rkevent(17, 1, "wwan0") != 0) syslog(LOG_WARNING, "no event manager");
 *
 *     void *sink = register_legacy_sink(context);               (of zmq_ctx_new())
 *     rkevent_record event;
 *     while (zmq_recv(sink, &event, sizeof event, 0) == (int)sizeof event) handle(&event);
 *     zmq_close(sink);
 *
 * Either way an event is one record of two numbers and a text. What the numbers mean is between the
 * event manager and the programs that raise events; the library passes them on as they are.
 *
 * rkevent() is for the event manager of the same router. The others, called legacy, distribute the
 * same records from one program, the source, to any number of others, the sinks. The program makes
 * the ZeroMQ context, owns it and the sockets that it gets here (zmq_close(3)), and reads its sinks
 * itself: each message is one record. It needs <zmq.h> and -lzmq for that; this header does not.
 *
 * Failures are told by the results alone. Nothing is logged. errno says why a call failed, in
 * ZeroMQ's numbers where it was ZeroMQ that did (zmq_strerror(3)).
 *
 * Threads and signals. Nothing is shared or locked: rkevent() may be called from any thread, a
 * socket by one thread at a time, and a context by all. A context and its sockets are not for a
 * forked child. A signal handler that runs meanwhile does not end a call, and a thread that is
 * cancelled (pthread_cancel(3)) finishes its call first. Nothing here is for signal handlers but
 * rkevent(), which is safe there.
 *
 * What cannot be helped: ZeroMQ ends the process where memory, and in some places descriptors, run
 * out in its inside. The failures that are described here are those that it reports.
 */
#ifndef RKUTILS_EVENT_H
#define RKUTILS_EVENT_H

#include <rkutils/export.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An event as it is in the pipe and in a message: 136 bytes in the machine's own byte order,
 * without padding. */
typedef struct rkevent_record {
  uint32_t event;
  uint32_t parameter;
  char text[128]; /* NUL-terminated: up to 127 characters; zero after them */
} rkevent_record;

/*
 * Writes a record of `event`, `parameter` and `text` into the event manager's pipe,
 * "/tmp/status/event-manager/throw". Of a longer text the first 127 characters are taken; NULL is
 * the empty text. The whole record goes in with one write(2), so that records of several programs
 * do not mix.
 *
 * Returns 0 when the record was written; -1 when it was not, or not wholly (onto a full disk, for
 * instance): at once when the pipe is missing, which is not created.
 *
 * Waits while the pipe is full, without a limit: for the event manager to read, also for one that
 * hangs or is gone. A pipe that nobody has open for reading takes the record all the same, and it
 * is lost: 0 does not mean that the event was seen. A regular file at the pipe's place gets the
 * record over its first bytes, each time.
 */
RK_API int rkevent(unsigned event, unsigned parameter, const char* text);

/*
 * Sends a copy of the record on a socket, usually of create_legacy_source(), as one message.
 *
 * Returns 0; -1 when there is no memory, the record is NULL, or ZeroMQ does not take the message:
 * for NULL or what is no socket (ENOTSOCK), after the end of the context (ETERM).
 *
 * Does not wait on a source. Those who are not connected, or not yet, miss the record; and so does
 * a sink that is so far behind that its queues, of 1000 messages at either end, are full. A source
 * that sends hundreds of records in one go can be too fast for any sink.
 */
RK_API int dispatch_legacy_event(void* socket, const rkevent_record* record);

/*
 * Makes a source in a ZeroMQ context: a ZMQ_PUB socket bound to `address`, "tcp://127.0.0.1:47011"
 * for one; zmq_bind(3) has the forms.
 *
 * Returns the socket, to be closed with zmq_close(3); NULL, with no socket left open, for a NULL
 * argument, an address that is taken (EADDRINUSE: each has one source) or is none, or when
 * descriptors or the context's sockets run out. A file, as in "ipc:///tmp/events", counts as left
 * over and not as taken: a second source gets all sinks that come from then on.
 */
RK_API void* create_legacy_source_with_addr(void* context, const char* address);

/* create_legacy_source_with_addr() on the default address, "tcp://127.0.0.1:47011". */
RK_API void* create_legacy_source(void* context);

/*
 * Makes a sink in a ZeroMQ context: a ZMQ_SUB socket connected to `address`, subscribed to all
 * records. The source may come later, go, and come back. Connecting takes place behind the call, so
 * that records are received from a moment soon after it; all, in the order they were sent, as long
 * as the sink keeps up (see dispatch_legacy_event()).
 *
 * Returns the socket, to be closed with zmq_close(3); NULL, with no socket left open, for a NULL
 * argument, an address that is none, or when descriptors or the context's sockets run out.
 *
 * Whoever listens at the address can send messages of any size: take only those of
 * sizeof(rkevent_record) bytes, and do not count on a NUL in the text.
 */
RK_API void* register_legacy_sink_with_addr(void* context, const char* address);

/* register_legacy_sink_with_addr() with the default address, "tcp://127.0.0.1:47011". */
RK_API void* register_legacy_sink(void* context);

#ifdef __cplusplus
}
#endif

#endif
