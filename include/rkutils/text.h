/*
 * Text, numbers, time and formatting in small plain functions.
 *
 *     char id[12];
 *     int valid = -1;
 *     int32_t channel = validValueOf32(&valid, stripwhite(line));
 *     if (valid != 0) syslog(LOG_WARNING, "no channel: %s", line);
 *     puts(strformat("channel %s, %s", i32toa(channel, id, 10), format_size(bytes)));
 *
 * Bytes are compared, counted and classified as unsigned. Case and character classes are those of
 * ASCII except where a function says that it asks the C library, whose answer may depend on the
 * locale.
 *
 * Threads and signals: strformat(), xml_readattr(), timeformat(), format_size() and format_rate()
 * return a buffer of their own, which belongs to the library and is overwritten by the function's
 * next call; they are for one thread at a time and not for signal handlers. mkid() draws from
 * random(). timeformat() and timeparse() read the time zone. All others keep no state. Nothing here
 * blocks or logs.
 *
 * Some names are general (`reverse`, `escape`). A program that links the shared library may define
 * a function of such a name in a file that does not include this header: its own calls reach its
 * own function, and the library's the library's. With the static library the two collide.
 */
#ifndef RKUTILS_TEXT_H
#define RKUTILS_TEXT_H

#include <rkutils/export.h>

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

struct timespec; /* of <time.h>, which hides it from strict C99 */

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Strings ---- */

/*
 * Converts `s` in place to lower or upper case, as tolower() or toupper() of the C library do for
 * each byte. Returns `s`; NULL and the empty text are returned as they are.
 */
RK_API char* strtolower(char* s);
RK_API char* strtoupper(char* s);

/*
 * True when every character of `s` is a digit, "+" or "-", wherever and however often: "1-2" and ""
 * are numbers. Deliberately loose; validValueOf32() is strict. False for NULL.
 */
RK_API bool is_number(const char* s);

/*
 * The first character of `s` that is not one of `set`, possibly its NUL. `s` itself when either is
 * NULL or empty.
 */
RK_API char* skipchars(const char* s, const char* set);

/*
 * Removes the characters of `set` from both ends of `s`: trailing ones by writing a NUL into `s`,
 * leading ones by returning a later start, so free() `s` and not the result. Nothing is written
 * where nothing trails. NULL when `s` or `set` is NULL.
 */
RK_API char* stripchars(char* s, const char* set);

/* stripchars(s, " \t\r\n"). */
RK_API char* stripwhite(char* s);

/* Reverses the bytes of `s` in place. NULL and texts of less than two characters are left alone. */
RK_API void reverse(char* s);

/*
 * Compares two texts, 'A' to 'Z' counting as lower case. Returns -1, 0 or 1 and nothing else; a
 * text that ends first is smaller; NULL counts as the empty text.
 */
RK_API int stricmp(const char* a, const char* b);

/* The same for the first `n` characters at most; 0 when `n` is 0. */
RK_API int strnicmp(const char* a, const char* b, size_t n);

/*
 * Copies `src` without the control characters of ASCII below 32, for a log or a terminal: tab, line
 * feed and carriage return as backslash and letter, other bytes below 32 as "^" and the byte plus
 * 64, all others as they are. Reads at most `srcLen` bytes and stops at a NUL. Stops as soon as the
 * output holds dstSize - 2 characters or more, which leaves room for the second half of a pair.
 * `dst` holds `dstSize` bytes and always gets its NUL, unless `dstSize` is 0: then nothing is
 * written. The two buffers must not overlap.
 *
 * For people, not for programs: it cannot be undone, for a backslash and a "^" of the text itself
 * stay single. The bytes from 127 on stay too, and with them DEL and, where the reader takes bytes
 * for ISO 8859, the second set of control characters, 128 to 159.
 *
 * Returns `dst`. A NULL `src` makes an empty text; with a NULL `dst` nothing happens.
 */
RK_API char* escape(const char* src, size_t srcLen, char* dst, size_t dstSize);

/*
 * Formats as printf(3) into a buffer of the library's, cut to 2047 characters. The values may be
 * results of an earlier call.
 *
 * A %n needs a format that cannot be written to, a literal: the C library may end the process
 * otherwise.
 *
 * Returns the buffer; it holds the empty text for a NULL `fmt` or when the C library refuses the
 * format.
 */
RK_API char* strformat(const char* fmt, ...) RK_PRINTF(1, 2);

/*
 * The text between the first "<tag>" in `text` and the first "</tag>" after it. Not an XML parser:
 * no attributes, no entities, no nesting. Both `text` and `tag` may be, or be part of, the result
 * of an earlier call.
 *
 * Returns a buffer of the library's; or NULL when `text` or `tag` is NULL or empty, the opening tag
 * is missing or last, or the closing tag is missing from the 1023 characters that follow the
 * opening one (the buffer is overwritten then all the same).
 *
 * Calls strformat(), so a result of that function is overwritten, and neither argument may be one.
 */
RK_API char* xml_readattr(const char* text, const char* tag);

/*
 * 0 when every character of `s` is one that can be dialled: a digit, an upper-case letter, "*", "#"
 * or "?"; so too for the empty text. -1 otherwise, and for NULL.
 */
RK_API int e164Number(const char* s);

/* ---- Numbers ----
 *
 * Numbers as text carry their radix as a suffix: "b" binary, "o" octal, "h" hexadecimal with
 * upper-case digits, none decimal.
 */

/*
 * Writes `value` in base 2, 8, 10 or 16 and a NUL into `buf`: at most 34 bytes for 32-bit values
 * (base 2), 18 for 16-bit ones.
 *
 * Returns `buf`; or NULL, with nothing written, for a NULL `buf`, another base, or a negative
 * 32-bit value in base 8 or 16. Negative values are written with a "-" in base 10, and otherwise,
 * where they are allowed, as their two's complement of the type's width.
 */
RK_API char* i32toa(int32_t value, char* buf, int base);
RK_API char* u_i32toa(uint32_t value, char* buf, int base);
RK_API char* i16toa(int16_t value, char* buf, int base);
RK_API char* u_i16toa(uint16_t value, char* buf, int base);

/*
 * Reads a number with its radix suffix; "x" is taken for "h". Of `s`, the first 33 characters
 * count.
 *
 * Nothing is refused. A leading "-" is a sign for the signed functions. Another lower-case letter
 * at the end is dropped, and the base is 10. Every other character counts as a digit, of the value
 * of its code minus that of "0" ("a" to "f" and "A" to "F" are 10 to 15 in base 16). Sums and
 * products wrap in 32 bits on every host. So "0x1F" does not mean 31; validValueOf32() and its
 * siblings tell.
 *
 * Returns the number; 0 for NULL and the empty text. The 16-bit functions return the lower 16 bits
 * of what the 32-bit ones do.
 */
RK_API int32_t valueOf32(const char* s);
RK_API uint32_t u_valueOf32(const char* s);
RK_API int16_t valueOf16(const char* s);
RK_API uint16_t u_valueOf16(const char* s);

/*
 * Reads as the function above does, and sets `*ok`, unless `ok` is NULL, to 0 when the number
 * written in base 10 is exactly `s`, else to -1: "7" is valid, "007", "+7", " 7", "7h" and NULL are
 * not.
 */
RK_API int32_t validValueOf32(int* ok, const char* s);
RK_API uint32_t u_validValueOf32(int* ok, const char* s);
RK_API int16_t validValueOf16(int* ok, const char* s);
RK_API uint16_t u_validValueOf16(int* ok, const char* s);

/*
 * Sets `*ok` to 0 when `s` is valid as above and its number lies within `min` to `max`, both
 * included, else to -1. With a NULL `ok` nothing happens.
 */
RK_API void validRangeValueOf32(int* ok, const char* s, int32_t min, int32_t max);
RK_API void u_validRangeValueOf32(int* ok, const char* s, uint32_t min, uint32_t max);
RK_API void validRangeValueOf16(int* ok, const char* s, int16_t min, int16_t max);
RK_API void u_validRangeValueOf16(int* ok, const char* s, uint16_t min, uint16_t max);

/* The smallest power of two that is not below `x`; 1 for 0; 0 above 2^31, which has none in 32
 * bits. */
RK_API uint32_t nextHigherPowerOf2(uint32_t x);

/* The two lower-case hexadecimal digits of each byte value, with a NUL. */
RK_API extern const char binToHexLut[256][3];

/*
 * Writes "0x" and the four bytes of `value` in the order in which they lie in memory, two
 * lower-case hexadecimal digits each, and a NUL: 11 bytes. On a little-endian host the value
 * 0x12345678 becomes "0x78563412".
 */
RK_API void convBinToHex(uint32_t value, char* out);

/*
 * Writes `data` as a table for people to read: each 32-bit word as convBinToHex() writes it, and a
 * space; a line feed after each word that ends a line of `bytesPerLine` bytes (0: no such lines);
 * at the end one more line feed and a NUL. A full last line is therefore followed by two line
 * feeds.
 *
 * Whole words are read: `byteCount` is rounded up to a multiple of 4, and `data` must be that long.
 * It needs no alignment. `out` holds nbrOfChars_forDataChunk2String() bytes.
 */
RK_API void dataChunk2String(const void* data, char* out, uint32_t byteCount,
                             uint32_t bytesPerLine);

/*
 * The size in bytes of a buffer that is enough for dataChunk2String() with the same arguments: for
 * each line of `bytesPerLine` bytes, 11 for each whole word and 2 more; and 1. More where that
 * would not be enough, for instance for lines that are no whole words; UINT32_MAX where 32 bits
 * cannot tell.
 */
RK_API uint32_t nbrOfChars_forDataChunk2String(uint32_t byteCount, uint32_t bytesPerLine);

/* ---- Time ---- */

/* Seconds since the system was started. */
RK_API long jiffy(void);

/*
 * The local time of `*t`, or of now when `t` is NULL, as "2026-11-21 09:05:59", in a buffer of the
 * library's; "1970-01-01 00:00:00" for a time that the C library cannot convert.
 */
RK_API char* timeformat(const time_t* t);

/*
 * Reads a local time "26-11-21 09:05:59" or "2026-11-21 09:05:59" as strptime(3) does; what follows
 * is ignored. Two digits of a year below 69 are of the years 2000 to 2068, the others of 1969 to
 * 1999; four digits may be any year, "0025" the year 25. Days 1 to 31 are taken in every month, and
 * those that it does not have count on in the next: 2025-02-31 is 2025-03-03.
 *
 * Returns not that time but mktime(gmtime(&that_time)): shifted once more by the distance to UTC.
 * Callers rely on it. 0 for NULL, the empty text, and a text in neither form; a time that time_t
 * cannot hold becomes -1 in mktime(3), and is shifted as that.
 */
RK_API time_t timeparse(const char* s);

/* A distance of time. */
typedef struct time_difference {
  int32_t seconds;
  int32_t nanoseconds; /* 0 to 999999999, so -0.5 s is -1 and 500000000 */
} time_difference;

/*
 * The time from `a` to `b`. Both have nanoseconds from 0 to 999999999; neither may be NULL. Seconds
 * that 32 bits cannot hold wrap.
 */
RK_API time_difference diffts(const struct timespec* a, const struct timespec* b);

/*
 * The microseconds from `a` to `b`, the difference of the nanoseconds divided towards zero. Neither
 * may be NULL.
 */
RK_API int64_t uselapsed(const struct timespec* a, const struct timespec* b);

/*
 * A number to tell one request from another: in the upper 16 bits the low 16 bits, modulo 65535, of
 * the time in seconds since 1970; in the lower ones the same of random(). So neither half is ever
 * 65535. Neither unique nor secret.
 */
RK_API uint32_t mkid(void);

/*
 * 0 when `s` begins with a time stamp "2026-11-21T09:05:59", a date "2026-11-21" or a time of day
 * "09:05:59"; -1 otherwise, and for NULL. Fields are numbers as scanf's %d reads them: white space
 * and a sign before a number are allowed ("-0" is 0), leading zeros are not needed; what follows
 * the last one is ignored. Years are 1999 to 2035, months 1 to 12, days 1 to 31 in every month,
 * hours 0 to 23, minutes and seconds 0 to 59.
 */
RK_API int validateTimeString(const char* s);
RK_API int validateDate(const char* s);
RK_API int validateTime(const char* s);

/* ---- Sizes and rates ---- */

/*
 * A number of bytes for people, in a buffer of the library's: up to 9999 as "9999 B"; above,
 * rounded to multiples of 1024 as often as it takes to get below 10000, with the units KB, MB, GB
 * and TB, of which the last takes everything that is left. Negative numbers are never divided.
 */
RK_API char* format_size(int64_t bytes);

/*
 * A rate of bytes per second as bits per second for people, with one decimal and the units Kbit/s,
 * Mbit/s, Gbit/s and Tbit/s (there is none below), in a buffer of the library's: 128 is "1.0
 * Kbit/s". A negative rate is "-" and its magnitude.
 */
RK_API char* format_rate(int64_t bytesPerSecond);

/* ---- Formatting engine ----
 *
 * A subset of printf without floating point, with the same result on every C library: flags
 * "-+ #0", width and precision as numbers or "*", lengths "hh", "h", "l" and "ll", conversions d i
 * u o x X c s p n and %%. It follows C99, but for wide characters: %lc and %ls are %c and %s, and
 * take a char and a char *. Where C99 leaves it open, a null string reads "(null)"; a pointer is
 * "0x" and lower-case digits, for NULL too; a conversion that it does not know prints its own
 * character and takes no value; a format that ends in the middle of a conversion prints nothing for
 * it.
 */

/*
 * Formats, drops the first `skip` characters, and stores at most size - 1 of the rest and a NUL in
 * `buf`, so that a long text can be had in windows. Characters outside of the window are counted
 * and not made. %n stores the number of characters before it, dropped and unstored ones included.
 *
 * Returns the number of characters stored. With a size of 0 nothing is written and the result is 0.
 * -1 with errno EOVERFLOW, and an empty text, when a width, a precision or the number of characters
 * passes INT_MAX before the window is full, or before the last %n behind it.
 *
 * `fmt` must not be NULL, nor `buf` unless `size` is 0. vsnxprintf() and vstrlenf() read a copy of
 * `ap`, which may be used again from where it is.
 */
RK_API int vsnxprintf(char* buf, size_t skip, size_t size, const char* fmt, va_list ap)
    RK_PRINTF(4, 0);
RK_API int snxprintf(char* buf, size_t skip, size_t size, const char* fmt, ...) RK_PRINTF(4, 5);

/*
 * The number of characters that the format makes; nothing is stored but by %n. -1 with errno
 * EOVERFLOW when it is above INT_MAX, or a width or precision is.
 */
RK_API int vstrlenf(const char* fmt, va_list ap) RK_PRINTF(1, 0);
RK_API int strlenf(const char* fmt, ...) RK_PRINTF(1, 2);

#ifdef __cplusplus
}
#endif

#endif
