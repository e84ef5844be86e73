/*
 * String: the library's text type.
 *
 *     String greeting("hello");
 *     String copy = greeting;             (shares the text)
 *     copy.concatf(", card %d", card);    (makes its own, `greeting` stays)
 *     if (copy.startsWith(greeting)) syslog(LOG_INFO, "%s", copy.c_str());
 *
 * A String is a handle, one pointer, onto a buffer with a reference count. Copies share the buffer,
 * at the cost of one increment; an operation that changes a String makes the buffer its own first
 * when it is shared. All empty Strings share one buffer that is never freed, except where an
 * operation says that it keeps a buffer of its own.
 *
 * Texts are bytes that end at a NUL. Case is that of ASCII. Operations that return positions return
 * a negative number where there is none.
 *
 * Buffers grow by a rule. For a text of n characters there is room for
 *     below 128:  ((n + 8) rounded down to a multiple of 16) + 7
 *     from 128:   ((n - 64) rounded down to a multiple of 64) + 127
 * characters: 7, 23, 39, and so on to 135; then 191, 255, and so on. A buffer never shrinks while
 * its String keeps it.
 *
 * Errors: positions out of range, negative counts, null pointers and NUL characters make an
 * operation do nothing or give the empty text, as said with each. The process is aborted when
 * memory runs out, and when a text, or the room asked for it, would be longer than INT32_MAX - 256
 * characters, whatever the operation. Nothing throws.
 *
 * NULs: bytes beyond a NUL inside of a text count in its length, are kept by copying and editing,
 * and are seen by getChars(), substring() with one argument, startsWith(), endsWith(),
 * lastIndexOf() of a character, equals() of a String, and comparing with a character. All else goes
 * by the C library's idea of a text and ends at a NUL: a char const *, substring() with two
 * arguments, toInteger(), indexOf(), and comparing otherwise, though Strings of different lengths
 * are not == and not equal. A search that ignores case or goes backwards tries the positions behind
 * a NUL too, and compares at each up to the next one.
 *
 * Threads and signals: the reference counts are plain integers. A String and all copies of it, and
 * the copies are not visible in a program's text, are for one thread at a time; a text for another
 * thread is passed as a copy of its characters (String(text.c_str())). Only the empty text may be
 * in use in several threads. Not for signal handlers.
 */
#ifndef RKUTILS_STRING_H
#define RKUTILS_STRING_H

#include <rkutils/export.h>

#include <cstdarg>
#include <cstdint>

class RK_API String {
 public:
  /* What a handle points to, one block of memory. */
  struct StringBuffer {
    std::int32_t refCount; /* handles that point here */
    std::int32_t capacity; /* characters that there is room for, without the NUL */
    std::int32_t length;   /* characters in use */
    char chars[1];         /* capacity + 1 of them; chars[length] is NUL */

    /* The buffer that empty Strings share. Counts one more than the handles; is never freed. */
    static StringBuffer* EMPTY();

    /*
     * The count, and adding to it, which gives the new one. Threads may count the handles of the empty
     * text at the same time, and lose some, which does not matter: it is read and written whole, but
     * not locked to add to it.
     */
    std::int32_t handles() const { return __atomic_load_n(&refCount, __ATOMIC_RELAXED); }
    std::int32_t count_handles(std::int32_t more) {
      std::int32_t const count = handles() + more;
      __atomic_store_n(&refCount, count, __ATOMIC_RELAXED);
      return count;
    }
  };

  /* ---- Making, copying and assigning ---- */

  /* The empty text. */
  String() : buffer_(share(StringBuffer::EMPTY())) {}

  /* The same text as `other`, sharing its buffer. */
  String(String const& other) : buffer_(share(other.buffer_)) {}

  /*
   * The one character `c`, in a buffer with room for 7; empty for NUL. An int is taken for a
   * character: `String s = 5` makes the text of the byte 5. stringOf() makes texts of numbers.
   */
  String(char c);

  /* The text `s`; empty for NULL. */
  String(char const* s);

  /*
   * The text `s` in a buffer of its own with room for `reserve` characters at least, even when `s`
   * is ""; the shared empty text for NULL.
   */
  String(char const* s, long reserve);

  /*
   * `count` characters of `s` from `offset` on, as many as there are. A negative offset means 0.
   * Empty for NULL, for a count below 1, and for an offset beyond the text.
   */
  String(char const* s, long offset, long count);

  ~String() { release(buffer_); }

  /* Shares the buffer of `other`, which may be this String: counted before the old one goes. */
  /* NOLINTNEXTLINE(bugprone-unhandled-self-assignment) */
  String& operator=(String const& other) {
    StringBuffer* const old = buffer_;
    buffer_ = share(other.buffer_);
    release(old);
    return *this;
  }

  /*
   * Takes the text `s`, which may be part of this String's own. A buffer of its own that is large
   * enough is kept, for "" too; otherwise a new one is made. So "" makes a String that shared its
   * text, or the empty one, the owner of a buffer with room for 7. NULL gives up the buffer for the
   * shared empty text, and so does String().
   */
  String& operator=(char const* s);

  /* Takes the one character `c`, always in a new buffer with room for 7; the empty text for NUL. */
  String& operator=(char c);

  /* An empty String, the same one each time. */
  static String const& EMPTY();

  /* As the constructors with these arguments. */
  static String stringOf(char c);
  static String stringOf(char const* s);
  static String stringOf(char const* s, long offset, long count);
  /*
   * The value as printf() writes it with %ld, %lu and %p, or "true" and "false". Cast an int to
   * long: as it is, it fits several of these, and does not compile. Cast a pointer to constant data
   * to void *: as it is, it counts as a bool, and gives "true".
   */
  static String stringOf(long value);
  static String stringOf(unsigned long value);
  static String stringOf(void* value);
  static String stringOf(bool value);

  /* ---- Reading ---- */

  /* The text, valid until the String is changed or destroyed. */
  char const* c_str() const { return buffer_->chars; }
  /* Its number of characters. */
  long length() const { return buffer_->length; }
  /* The number of characters that the buffer has room for. */
  long capacity() const { return buffer_->capacity; }
  /* The number of handles on the buffer; for the shared empty text, one more. */
  long useCount() const { return buffer_->handles(); }

  /* The character at `i`; NUL outside of the text. */
  char operator[](long i) const { return i < 0 || i >= buffer_->length ? '\0' : buffer_->chars[i]; }

  /* This String. */
  String& operator*() { return *this; }
  String const& operator*() const { return *this; }

  /*
   * The number that the text begins with, as C99's scanf() reads it with %i into an int of 32 bits:
   * decimal, hexadecimal after "0x", octal after "0"; a sign and white space before it and anything
   * behind it are allowed. The same with every C library: "0b1" is 0, and "0x" without a digit no
   * number. -1 where there is none, which cannot be told from the number -1. Of a number that is
   * too large, the lower 32 bits; -1 when 64 bits cannot hold it.
   */
  long toInteger() const;

  /*
   * Copies the characters from `begin` to before `end` to `dst`, without a NUL. A negative `begin`
   * means 0, an `end` beyond the text its length; where `end` is not behind `begin`, nothing is
   * copied. `dst` needs room for end - begin characters, after that, and may overlap the text. Does
   * nothing when `dst` is NULL.
   */
  void getChars(long begin, long end, char* dst) const;

  /* A new String of the characters from `from` on; empty when `from` is not inside the text. */
  String substring(long from) const;
  /*
   * A new String of to - from characters from `from` on, as many as there are; a negative `from`
   * counts in that difference and then means 0. Empty unless from < to and from is below the
   * length.
   */
  String substring(long from, long to) const;

  /* ---- Appending ---- */

  /* Appends a text, which may be part of this String's own; nothing for NULL and an empty one. */
  String& concat(String const& t);
  /* Appends exactly `n` bytes from `s`, NULs included; nothing for NULL and for n below 1. */
  String& concat(char const* s, long n);
  String& operator+=(String const& t);
  String& operator+=(char const* s);
  /* Appends one character; nothing for NUL. */
  String& operator+=(char c);

  /* ---- Formatting ----
   *
   * As printf(), for the conversions of vstrlenf() in <rkutils/text.h>, which measures the text
   * before the C library's vsnprintf() writes it. Others must not be used, though the compiler lets
   * them pass: no floating point, no %zu, %jd, %td or %Lf, no wide characters, no "%1$d". The
   * measuring takes no value for them, so that a %s behind one reads a wrong value and may crash.
   *
   * Where measuring and writing disagree, the text is cut or filled with NULs: %p where the C
   * library writes pointers in another way, a precision with a NULL %s, a "%" at the end.
   *
   * A text above INT_MAX counts as empty; one below, but too long for a String, aborts as
   * everywhere. A %n needs a format that cannot be written to, a literal: the C library may end the
   * process otherwise. NULL is the empty format.
   *
   * The format may be this String's own text, if it is fit to be a format. A value may be its own
   * text only when the buffer is shared or too small for the result: otherwise it is overwritten
   * while it is read, and the text is one of the same length made of old characters, new ones and
   * NULs.
   */

  /* Replaces the text. The shared empty text when there is nothing to write. */
  String& format(char const* fmt, ...) RK_PRINTF(2, 3);
  /* Appends the text. */
  String& concatf(char const* fmt, ...) RK_PRINTF(2, 3);

  /* ---- Editing ---- */

  /*
   * Inserts before the character at `pos`; at the length, appends. Does nothing for a NUL, NULL or
   * empty text, and for a position outside of the text. The text may be part of this String's own.
   */
  String& insert(long pos, char c);
  String& insert(long pos, String const& t);
  String& insert(long pos, char const* s);

  /*
   * Keeps the first `from` characters, none for a negative `from`, in the same buffer; instead of a
   * shared one, in a new one of its own, for no characters too. Nothing to remove changes nothing.
   */
  String& deleteRegion(long from);
  /* Removes the characters from `from` to before `to`, as far as they are in the text. */
  String& deleteRegion(long from, long to);

  /* Change the letters of ASCII. A shared buffer is copied even when nothing changes. */
  String& toLowerCase();
  String& toUpperCase();

  /* Makes every character `from` a `to`; nothing for a NUL `to`. Copies a shared buffer too. */
  String& replace(char from, char to);

  /*
   * Removes blanks, tabs, line feeds, vertical tabs, form feeds and carriage returns from both
   * ends. A text of nothing else becomes the shared empty text, and so does an empty one of its
   * own.
   */
  String& trim();

  /* ---- Comparing ----
   *
   * The two compareTo functions have the reverse of the usual sign: positive when this String comes
   * first. Callers count on it. The operators < and so on are as usual.
   */

  int compareTo(String const& t) const;
  int compareToIgnoreCase(String const& t) const;
  bool equals(String const& t) const;
  bool equalsIgnoreCase(String const& t) const;
  /* NULL equals the empty text. */
  bool equals(char const* s) const;
  bool equalsIgnoreCase(char const* s) const;

  bool startsWith(String const& p) const;
  /* Whether `p` stands at `offset`; false for a negative one. */
  bool startsWith(String const& p, long offset) const;
  bool endsWith(String const& p) const;

  /*
   * Whether `len` characters from `toff` on are those of `other` from `ooff` on. False when a
   * region is not wholly inside its text, or a number is negative.
   */
  bool regionMatches(long toff, String const& other, long ooff, long len) const;
  bool regionMatches(bool ignoreCase, long toff, String const& other, long ooff, long len) const;

  /* ---- Searching ----
   *
   * The first or last position of a character or text; with `from`, the first one not before it (a
   * negative `from` means 0), or the last one not after it (with a negative `from` there is none).
   * The NUL character is not found from the front; the empty text is everywhere, at the length too.
   */

  long indexOf(char c) const;
  long indexOf(char c, long from) const;
  long indexOf(String const& t) const;
  long indexOf(String const& t, long from) const;
  long indexOfIgnoreCase(String const& t) const;
  long indexOfIgnoreCase(String const& t, long from) const;
  long lastIndexOf(char c) const;
  long lastIndexOf(char c, long from) const;
  /*
   * For a text longer than this one the result is the difference of the lengths, which is negative
   * but not always -1.
   */
  long lastIndexOf(String const& t) const;
  long lastIndexOf(String const& t, long from) const;
  long lastIndexOfIgnoreCase(String const& t) const;
  long lastIndexOfIgnoreCase(String const& t, long from) const;

 private:
  static StringBuffer* share(StringBuffer* buffer) {
    buffer->count_handles(1);
    return buffer;
  }
  static void release(StringBuffer* buffer) {
    if (buffer->count_handles(-1) == 0) free_buffer(buffer);
  }
  static void free_buffer(StringBuffer* buffer);

  RK_LOCAL bool is_private() const;
  RK_LOCAL void take(StringBuffer* buffer);
  RK_LOCAL void take_empty();
  RK_LOCAL void make_private_copy();
  RK_LOCAL void set_length(long length);
  RK_LOCAL void write_behind(long kept, long added, char const* fmt, va_list values)
      RK_PRINTF(4, 0);
  RK_LOCAL void end_own_text(long new_length);
  RK_LOCAL String& internalConcat(char const* s, long n);
  RK_LOCAL String& internalInsert(long pos, char const* s, long n);

  StringBuffer* buffer_;
};

/* The left operand's text and then the right one's, in a new String; NULL and NUL add nothing. */
RK_API String operator+(String const& left, String const& right);
RK_API String operator+(String const& left, char const* right);
RK_API String operator+(String const& left, char right);
RK_API String operator+(char const* left, String const& right);
RK_API String operator+(char left, String const& right);

/*
 * Compare as strcmp() does. NULL counts as the empty text, which is below every text of a length
 * above 0; the NUL character counts as the empty text too.
 */
RK_API bool operator==(String const& left, String const& right);
RK_API bool operator==(String const& left, char const* right);
RK_API bool operator==(char const* left, String const& right);
RK_API bool operator==(String const& left, char right);
RK_API bool operator==(char left, String const& right);
RK_API bool operator!=(String const& left, String const& right);
RK_API bool operator!=(String const& left, char const* right);
RK_API bool operator!=(char const* left, String const& right);
RK_API bool operator!=(String const& left, char right);
RK_API bool operator!=(char left, String const& right);
RK_API bool operator<(String const& left, String const& right);
RK_API bool operator<(String const& left, char const* right);
RK_API bool operator<(char const* left, String const& right);
RK_API bool operator>(String const& left, String const& right);
RK_API bool operator>(String const& left, char const* right);
RK_API bool operator>(char const* left, String const& right);
RK_API bool operator<=(String const& left, String const& right);
RK_API bool operator<=(String const& left, char const* right);
RK_API bool operator<=(char const* left, String const& right);
RK_API bool operator>=(String const& left, String const& right);
RK_API bool operator>=(String const& left, char const* right);
RK_API bool operator>=(char const* left, String const& right);

#endif
