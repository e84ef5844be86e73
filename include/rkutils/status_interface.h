/*
 * StatusInterface: a program's state as small files that the rest of the router reads, and pipes
 * through which others send it messages.
 *
 *     StatusInterface status;
 *     if (!status.setup(BASEPATH_STATUS, "/dialer")) return 1;     (the log says why)
 *     status.setStatus("/state", "online");                        (/tmp/status/dialer/state)
 *     status.setLink("/uplink", "/tmp/status/wwanmd/card1");
 *     status.setupIpcRxFifo("/command", &observer);                (then runs libevent's loop)
 *
 * Each program has a folder below one of three roots. In it a status item is a file whose whole
 * content is the value, without a newline or NUL behind it; a link names another file; and a FIFO
 * (see fifo(7)) takes messages, which arrive at an observer of the program's.
 *
 * Names. The folder's name is put behind the root and an item's name behind the folder's path, as
 * they are, so both begin with "/". An item may be in a folder within, "/card1/state", once a
 * setup() of "/dialer/card1" has made that. Before a setup() the folder's path is empty, and items
 * are paths of the whole file system: "/state" is /state. A name with a NUL in it is no file's, and
 * is treated as that of one that can be neither found nor made.
 *
 * Whose folders. A folder of status items must be writable for the program that publishes there and
 * for nobody else. Items are written through links, removed and made anew by their names: who may
 * change the folder decides which file that is.
 *
 * FIFOs and libevent. A FIFO is read by a bufferevent on libevent's default event base, which is
 * the one that event_init() made last, and the program runs that base's loop. The base is made
 * before the first FIFO and stays the default one until the last is gone: clean up, or destroy the
 * interface, before event_base_free(). Where it is freed first all the same and none takes its
 * place, FIFOs are still closed and removed, and libevent's memory for them is lost.
 *
 * Blocking. Nothing waits but for the file system; except that setStatus() and getStatus() of an
 * item that is a FIFO wait for its other end. Where the reader goes before it has the value, the
 * setter gets SIGPIPE, which ends a process that does not ignore or handle it. Calls that a signal
 * interrupts go on.
 *
 * Failures are results: only setup() logs. Nothing throws. Without memory for a path or value the
 * process is aborted, as everywhere with String.
 *
 * Threads and signals: an interface is for one thread, the one that runs the event loop, on which
 * observers are called. Threads may have interfaces of their own. A thread that is cancelled
 * (pthread_cancel(3)) finishes its call first, and an observer its own: libevent is not left in the
 * middle of one. Not for signal handlers.
 */
#ifndef RKUTILS_STATUS_INTERFACE_H
#define RKUTILS_STATUS_INTERFACE_H

#include <rkutils/export.h>
#include <rkutils/string.h>

#include <cstddef>

struct bufferevent;

/* The roots of the status folders. */
enum BasePath : int {
  BASEPATH_STATUS = 0,   /* "/tmp/status", gone after a restart */
  BASEPATH_NVSTATUS = 1, /* "/nvstatus", kept */
  BASEPATH_PROC = 2 /* "/proc", the kernel's: there are items to write, but no folder to make */
};

/* Takes the messages of FIFOs. Programs derive from it; its virtual members stay in this order. */
class RK_API StatusFifoObserver {
 public:
  virtual ~StatusFifoObserver();

  /*
   * Called from the event loop with `count` bytes, 1 to 99, that have arrived on the FIFO with the
   * handle `handle` (as a number, what setupIpcRxFifo() returned). There is a NUL at data[count];
   * others may be among the bytes. `data` is valid during the call.
   *
   * A FIFO is a stream: what arrived together comes in pieces of 99 bytes and a last one of what
   * is left, and messages that others wrote one after the other may come as one.
   *
   * May use the interface in any way, delete this FIFO or others, set up new ones, and destroy the
   * interface or this observer: a FIFO that is deleted makes no more calls, and what it still held
   * is dropped. An exception goes no further than the call; the next piece is delivered as usual.
   */
  virtual void onStatusFifoRead(struct bufferevent* handle, const char* data,
                                std::size_t count) = 0;
};

class RK_API StatusInterface {
 public:
  /* Without a folder and without FIFOs. */
  StatusInterface();

  /* As cleanup(). Files, links and folders stay. */
  virtual ~StatusInterface();

  StatusInterface(const StatusInterface&) = delete;
  StatusInterface& operator=(const StatusInterface&) = delete;

  /*
   * Makes root + `name` the folder of this interface, and every folder on its way that is missing,
   * with mode 0777 less the umask. Slashes in a row count as one. Whether a last one that is there
   * is a folder shows when it is used. FIFOs that are there stay and are read.
   *
   * Returns true; false with one or two LOG_ERR messages when
   *   - a folder cannot be made. The interface has its new path all the same:
   *         Could not create directory DIRECTORY. Errno:ERRNO!
   *         Could not setup status interface for DIRECTORY!
   *   - `base` is none of the three, or `name` holds a NUL. The interface is as it was:
   *         Could not setup status interface for !
   */
  bool setup(BasePath base, String const& name);

  /*
   * Makes `value` the whole content of the item, NULs included; an empty one leaves an empty file.
   * A file that is missing is made with mode 0644 less the umask. The value goes in by one write:
   * a reader may see the file empty just before, and a FIFO's reader gets it as one message.
   *
   * Returns true; false when the file cannot be opened, or does not take the whole value, on a full
   * disk for one: then it holds a part of it.
   */
  bool setStatus(String const& item, String const& value);

  /*
   * Reads the whole content of the item into `value`, as text: it is read in pieces of up to 99
   * bytes, and what follows a NUL in its piece is left out.
   *
   * Returns true; false with an empty value when the file cannot be opened or read to its end.
   */
  bool getStatus(String const& item, String& value) const;

  /*
   * Makes the item a symbolic link to `target`, in the place of a link or file that is there; a
   * relative target counts from the link's folder. With an empty target, removes what is there.
   *
   * Returns true, and with an empty target always: also when nothing was there. False when the link
   * cannot be made, in the place of a folder for one, and with nothing touched for a target that
   * holds a NUL.
   */
  bool setLink(String const& item, String const& target);

  /*
   * Makes a FIFO that others write to, with mode 0666 less the umask, in the place of a file or
   * link that is there, and has what arrives delivered to `observer`, which must live as long as
   * the FIFO. Where this interface has a FIFO of that name already, delete it first: deleting it
   * later would remove the new one's file.
   *
   * Returns the FIFO's handle, which is its bufferevent's address. 0 when it cannot be made or
   * opened, and without memory or a default event base; the file stays when it came to that. 0 with
   * nothing touched for a NULL observer. Until the FIFO is deleted the bufferevent is there for
   * reading what libevent tells about it; the interface frees it.
   */
  unsigned long setupIpcRxFifo(String const& item, StatusFifoObserver* observer);

  /*
   * Stops reading a FIFO, closes it and removes its file. Nothing for a handle that no FIFO of this
   * interface has. A handle may come back with a later FIFO.
   */
  void deleteIpcRxFifo(unsigned long handle);

  /* Deletes all FIFOs. */
  void cleanup();

  /* What libevent calls when something has arrived; `observer` is a StatusFifoObserver. */
  static void STATUS_FIFO_READ_EVENT(struct bufferevent* event, void* observer);

 private:
  struct RK_LOCAL Fifo;

  RK_LOCAL String path_of(String const& item) const;

  String path_; /* the folder */
  Fifo* fifos_; /* the newest one first */
};

#endif
