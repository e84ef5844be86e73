/*
 * ConfigReader: a file of settings, read once and asked by key.
 *
 *     ConfigReader settings;
 *     settings.initialize("/etc/modem.conf", 64);                      (about 64 settings)
 *     String const& apn = settings.getValue("apn", String::EMPTY());
 *     bool roaming = settings.getValueAsInt("roaming", 0) != 0;        (roaming = on)
 *     String const& name = settings.getIndexedValue("card%lu.name", 2, apn);   (card2.name)
 *
 * The file has one setting a line, key=value:
 *
 *     # the first modem
 *     apn         = internet.example
 *     card2.name  = Second card
 *
 * A line is split at its first "="; a line without one, and one whose first character is "#", says
 * nothing. Bytes of 32 and less (blanks, tabs, line ends, control characters) are removed from the
 * whole key, and from both ends of the value. Key and value may be empty. Nothing is quoted,
 * escaped, continued or included.
 *
 * The first setting of a key counts. Later ones are reported and ignored.
 *
 * Two things that files have come to depend on:
 *   - A key behind two or more such bytes keeps the second one: "  key=1" is the setting " key".
 *   - Lines are read in pieces of up to 1022 characters, and each piece of a longer line is a line
 *     of its own: one that continues a value says nothing, unless there is a "=" in it. A NUL ends
 *     a piece early, and what follows it in the piece is not seen.
 *
 * Failures. Messages go to standard output, through stdio and not to the log, and only two things
 * have one: a file that cannot be opened, and a key that is there already. A process that runs out
 * of memory for a text is aborted, as everywhere with String; initialize() and add() throw
 * std::bad_alloc where they run out of it for something else.
 *
 * Ownership. Getters return references: to a value of the reader, valid until it is initialized
 * again, cleaned up or destroyed; or to the default that they were given, valid as long as that is.
 * A default that is made in the call, of a literal for one, is gone at the end of the statement:
 * copy the String (String apn = ...) or keep the default in a variable.
 *
 * A reader that has not been initialized, or has been cleaned up, is empty: every getter gives the
 * default.
 *
 * Threads and signals: nothing is locked. Several threads may call getters of one reader as long as
 * none calls anything else, and as long as they only read what they get: a copy of a String counts
 * itself in the text that it shares with the reader. A call that a signal interrupts goes on. A
 * thread that is cancelled (pthread_cancel(3)) finishes its call first. Not for signal handlers.
 */
#ifndef RKUTILS_CONFIG_READER_H
#define RKUTILS_CONFIG_READER_H

#include <rkutils/export.h>
#include <rkutils/string.h>

class INStringHashTable;

class RK_API ConfigReader {
 public:
  /* An empty reader. */
  ConfigReader();

  /* Frees everything with cleanup() of this class: a derived class's own is not called. */
  virtual ~ConfigReader();

  ConfigReader(const ConfigReader&) = delete;
  ConfigReader& operator=(const ConfigReader&) = delete;

  /*
   * The virtual members stay in this order: programs derive from the class. Members do not call
   * each other through the virtual table, but for initialize(), which calls cleanup(): a derived
   * class overrides each one that it wants changed. Keys and patterns end at their first NUL.
   */

  /*
   * Drops what the reader holds, calling cleanup() as a derived class may have it, and reads the
   * file at `path`, which may be a value of this reader. `size` is the number of settings expected:
   * the table gets that many buckets, rounded up to a power of two, and never grows, but takes any
   * number of settings. Waits where opening and reading the file do, on a pipe for one.
   *
   * Returns true when the file was read, to its end or to where reading fails; a directory reads as
   * an empty file. False when it cannot be opened; the reader is initialized all the same, without
   * a setting, and two lines are printed, the second one with three blanks at its end:
   *     cfg: Error in config file PATH, line 0:
   *     cfg:
   * A setting whose key is there already is reported and ignored as by add().
   *
   * Throws std::bad_array_new_length for a `size` that INStringHashTable refuses (above 268435456),
   * and std::bad_alloc without memory; the reader is empty then.
   */
  virtual bool initialize(String const& path, unsigned long size);

  /*
   * Frees all settings. The reader is empty afterwards. initialize() does this too when a derived
   * class's own does not.
   */
  virtual void cleanup();

  /* The value of `key`; `def` when it has none. */
  virtual String const& getValue(String const& key, String const& def) const;

  /*
   * The value of `key` as a number: 1 for "on" and 0 for "off", in any case of letters; otherwise
   * what valueOf32() of <rkutils/text.h> makes of it: decimal, binary with a "b" at its end, octal
   * with an "o", hexadecimal with an "h" or "x", 0 for the empty text. Another lower-case letter at
   * the end is dropped, so that "12m" is 12; any other text gives a number without meaning. `def`
   * when the key has no value.
   */
  virtual long getValueAsInt(String const& key, long def) const;

  /*
   * As getValue() for the key that the pattern `key` makes of `index`. The pattern is a format of
   * String::format() for one unsigned long, such as "card%lu.name". Write it in the program's text:
   * a pattern with another conversion reads values that nobody passed, and one of a stranger's can
   * read and write the program's memory, or ask for more of it than there is. A pattern that makes
   * more than INT_MAX characters makes no key, and `def` is returned.
   */
  virtual String const& getIndexedValue(String const& key, unsigned long index,
                                        String const& def) const;

  /*
   * The value of the key that the pattern makes as a number: the same numbers as getValueAsInt().
   */
  virtual long getIndexedValueAsInt(String const& key, unsigned long index, long def) const;

  /*
   * Adds a setting, as it is: nothing is removed from key or value. A key ends at its first NUL.
   *
   * Returns true. False, with the reader as it was, when the key is there already, printed as
   *     cfg: Ignoring duplicate tag:KEY=VALUE
   * with the new value, or when the reader has not been initialized, without a message. Throws
   * std::bad_alloc without memory, with the reader as it was.
   */
  bool add(String const& key, String const& value);

  /*
   * Copies `n` characters of `src`, counted from its first one that is not a blank, to `dst` of
   * `dstSize` bytes, without the blanks at their end, and ends them with a NUL. Only the space
   * counts as a blank. `dst` may overlap `src`. `src` needs no NUL when there are `n` characters,
   * one at least, behind its leading blanks.
   *
   * Returns 1. 0, with `dst` untouched, when there are fewer than `n` characters behind the leading
   * blanks, when `n` and the NUL do not fit into `dstSize`, for a negative `n`, and for NULL.
   */
  int strcpystrip(char* dst, int dstSize, char* src, int n);

  /* The index of the first `c` in `str`; -1 where there is none, for a NUL, and for NULL. */
  int indexof(char* str, char c);

 private:
  INStringHashTable* table_; /* of Strings, which the reader owns; NULL before it is initialized */
};

#endif
