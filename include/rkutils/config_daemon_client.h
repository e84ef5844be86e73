/*
 * ConfigDaemonClient: reading and writing single configuration values, for programs that work with
 * String.
 *
 *     ConfigDaemonClient config;
 *     String address;
 *     config.getIndexedValue("interface.%lu.address", 2, address);   (interface.2.address)
 *     long mtu = 1500;                                               (kept when there is no answer)
 *     if (config.getValueAsInt("wan.mtu", mtu) < 1280) config.setValueAsInt("wan.mtu", 1280);
 *
 * An object is one connection to the configuration daemon from construction to destruction, and
 * every call one exchange of one value: configd_set() or configd_get() of <rkutils/configd.h>, with
 * all that is said there about time, late replies, signals, forked children and the texts of keys
 * and values. Programs that read many values at once use configd_add_query() and configd_fetch().
 * No call here ends a series of changes; that takes configd_done() on a connection of
 * configd_open().
 *
 * Failures. Setters return false; getters leave the output as it was. After a failed exchange the
 * socket is a fresh one in the same connection, so that the next call simply tries again. An object
 * whose connection could not be made at all fails every call and never tries to make one. What
 * fails on the way to the daemon and back is logged by configd_open(), configd_get() and
 * configd_set(); what is refused before that, here, is not. Nothing is printed, nothing throws.
 *
 * Keys have up to 255 characters. An empty key is nobody's: setting it fails, and getting it
 * succeeds with the empty text, both without an exchange. A text counts with its length, but what
 * follows a NUL in it is not sent.
 *
 * Indexed keys. The `key` of the members with Indexed in their names is a pattern, a format of
 * String::format() for one unsigned long, "lan.%lu.name" for one. Write it in the program's text: a
 * pattern with another conversion reads values that nobody passed, and one of a stranger's can read
 * and write the program's memory. Patterns have up to 255 characters, and so have the keys that
 * they make; longer ones are refused.
 *
 * Time. A call waits up to ten seconds for the reply; sending waits, without a limit, while the
 * queue of a hung daemon is full.
 *
 * Threads and signals: an object is for one thread at a time, as its String arguments are. Every
 * wait for a reply leaves SIGPIPE at its default action. A thread that is cancelled
 * (pthread_cancel(3)) finishes its call first. Not for signal handlers.
 */
#ifndef RKUTILS_CONFIG_DAEMON_CLIENT_H
#define RKUTILS_CONFIG_DAEMON_CLIENT_H

#include <rkutils/configd.h>
#include <rkutils/export.h>
#include <rkutils/string.h>

class RK_API ConfigDaemonClient {
 public:
  /* Opens the connection with configd_open(), which logs why it cannot. The daemon need not run. */
  ConfigDaemonClient();

  /* Closes it with configd_close(). */
  virtual ~ConfigDaemonClient();

  ConfigDaemonClient(const ConfigDaemonClient&) = delete;
  ConfigDaemonClient& operator=(const ConfigDaemonClient&) = delete;

  /*
   * The virtual members stay in this order: programs derive from the class. Members do not call
   * each other through the virtual table: a derived class overrides each one that it wants changed.
   */

  /*
   * Assigns `value`, of up to 1023 characters, to `key`.
   *
   * Returns true when the daemon has echoed the assignment. False when there is no connection, the
   * key is empty or too long, the value is too long, or configd_set() fails, which logs it.
   */
  virtual bool setValue(String const& key, String const& value) const;

  /* The same for a number, in decimal. */
  virtual bool setValueAsInt(String const& key, long value) const;

  /* As setValue() for the key that the pattern `key` makes of `index`. */
  virtual bool setIndexedValue(String const& key, unsigned long index, String const& value) const;

  /* As setValueAsInt() for the key that the pattern `key` makes of `index`. */
  virtual bool setIndexedValueAsInt(String const& key, unsigned long index, long value) const;

  /*
   * Asks for the value of `key` and assigns it to `value`, cut to 1023 characters. A key that the
   * daemon does not know has the value that it answers with. `key` and `value` may be the same
   * String.
   *
   * Returns `value`; unchanged when there is no connection, the key is too long, or configd_get()
   * fails, which logs it. There is no other sign of a failure: who must know gives `value` a text
   * that no answer has.
   */
  virtual String& getValue(String const& key, String& value) const;

  /*
   * Asks for the value of `key` and stores the number that it begins with, as atoi() reads it:
   * leading blanks, a sign and decimal digits, whatever follows them; 0 where there is no number,
   * the empty text included. A number that an int cannot hold wraps in 32 bits, on every host:
   * "4294967298" is 2.
   *
   * Returns what `value` then holds; it is unchanged after a failure, as with getValue().
   */
  virtual long getValueAsInt(String const& key, long& value) const;

  /* As getValue() for the key that the pattern `key` makes of `index`. */
  virtual String& getIndexedValue(String const& key, unsigned long index, String& value) const;

  /* As getValueAsInt() for the key that the pattern `key` makes of `index`. */
  virtual long getIndexedValueAsInt(String const& key, unsigned long index, long& value) const;

 private:
  configd_connection* const connection_; /* NULL when there is none */
};

#endif
