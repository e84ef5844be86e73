/*
 * The router's digital inputs and outputs: reading, switching, and measuring the frequency of an
 * input.
 *
 *     unsigned char door = 0;
 *     if (dio_roValue(1, &door) == DIO_OK) dio_setValue(2, door);    (output 2 follows input 1)
 *
 *     DioStatusAll all;
 *     if (dio_getStatus(&all) != DIO_OK) return;                     (the log says why)
 *     for (uint32_t input = 1; input <= all.in.count; ++input)
 *       printf("%d\n", dio_getInValueFromStatus(&all.in, input));
 *
 * Inputs and outputs are numbered separately, each from 1. The kernel's driver has a folder for
 * each under "/sys/devices/halcyonix/": "din1", "din2" ... for inputs, "dout1" ... for outputs. In
 * there is the file "value", which holds the character 0 or 1, and for inputs "frequency". Every
 * call opens the file that it needs, close-on-exec, and closes it again; nothing stays open.
 * Counting and dio_frequency() allocate some memory meanwhile: want of it is a failure to open.
 *
 * Results. The functions that return unsigned give one of the codes below, DIO_OK for success.
 * What a pointer leads to is written on success only, unless the function says otherwise. Where a
 * system call failed (DIO_ERR_NOENT, DIO_ERR_IO) errno tells why; it is 0 where a file took or gave
 * too little. Nothing is tried again, but what a signal handler has interrupted.
 *
 * What goes wrong is logged through syslog. For all functions, with the path and the cause:
 *     LOG_ERR      "Can't open(%s) - (%s)"
 *     LOG_ERR      "Can't read from \"%s\" - (%s)"
 *     LOG_ERR      "Can't write to \"%s\" - (%s)"
 *     LOG_ERR      "Lexical error on input from \"%s\""
 *     LOG_ERR      "Can't close(%s) - (%s)", which changes neither the result nor errno
 * and for a number outside 1 to 99, 0 included,
 *     LOG_WARNING  "DIO number out of range (%u > %u)", with the number and 99
 *
 * Misuse of the status records is a programming error and aborts the process in every build type,
 * through the C library's assertion report on standard error. It names the condition as given
 * below, the source "rkutils/dio_status", the line, and the function.
 *
 * Threads and signals: nothing is locked. Calls from several threads do not disturb each other; but
 * the counts are remembered once for the process, and of threads that count at the same time each
 * gets what any of them has counted last. A status record belongs to one thread at a time. A thread
 * that is cancelled (pthread_cancel(3)) finishes its call first. Nothing here is for signal
 * handlers. How long a call takes is the driver's business: none waits for anything else.
 */
#ifndef RKUTILS_DIO_H
#define RKUTILS_DIO_H

#include <rkutils/export.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The numbers that inputs (RO, read-only) and outputs (RW) can have, and how many of them a status
 * record may count. */
enum {
  DIORONUMBER_MIN = 1,
  DIORONUMBER_MAX = 99,
  DIORWNUMBER_MIN = 1,
  DIORWNUMBER_MAX = 99,
  MAX_DIO_IN_COUNT = 99,
  MAX_DIO_OUT_COUNT = 99
};

/* Results. */
enum {
  DIO_OK = 0,
  DIO_ERR_RANGE = 1,    /* the number is not one of 1 to 99 */
  DIO_ERR_NOENT = 2,    /* there is no such input or output, or no file of this kind for it */
  DIO_ERR_LEXICAL = 3,  /* the file holds something else than it should */
  DIO_ERR_INACTIVE = 4, /* the frequency is not being measured */
  DIO_ERR_ACTIVE = 5,   /* the frequency is being measured already */
  DIO_ERR_IO = 6        /* anything else; or a NULL pointer, then errno is EINVAL */
};

/* The values of all inputs, or of all outputs. Number n has the bit (n - 1) % 8 of the byte
 * (n - 1) / 8 of `bits`, bit 0 being the lowest; it is set when the value is 1.
 *
 * That is room for 96, and numbers go up to 99. 97, 98 and 99 have the lowest bits of the byte that
 * follows the record. In the `in` of a DioStatusAll that is the first byte of `out.count`; behind
 * any other record it belongs to something else. A router has far fewer. A program that wants to be
 * safe from more keeps records as DioStatusAll, and four bytes behind it. */
typedef struct DioStatus {
  uint32_t count; /* inputs or outputs described, numbers 1 to `count` */
  unsigned char bits[12];
} DioStatus;

/* Both directions: 32 bytes, `out` from byte 16 on. */
typedef struct DioStatusAll {
  DioStatus in;
  DioStatus out;
} DioStatusAll;

/* What the driver tells of an input's frequency: three numbers. `value` is the last of them in the
 * file. While nothing is measured `first` and `second` are both 0. */
typedef struct DioFrequency {
  unsigned long value;
  long first;
  long second;
} DioFrequency;

/*
 * Counting. Stores into `count` how many inputs and outputs there are: dio_count() both together,
 * dio_roCount() the inputs and dio_rwCount() the outputs.
 *
 * Those count whose folder is named "din" or "dout" and one or two digits, 0 and 00 among them, and
 * lets the program list and enter it (access(2): with its real user's rights). Nobody looks at
 * whether the numbers follow each other.
 *
 * Returns DIO_OK; without the driver's folder the counts are 0. A NULL `count` gives DIO_ERR_IO,
 * with errno EINVAL.
 *
 * All three count both anew, first the inputs and then the outputs. When that fails it is logged,
 * LOG_ERR "Can't scandir(/sys/devices/halcyonix/) - (%s)" with the cause, which errno tells too;
 * the result is DIO_OK all the same, and the count is the one of the last time, 0 at first. After a
 * failure with the inputs the outputs are not counted.
 */
RK_API unsigned int dio_count(uint32_t* count);
RK_API unsigned int dio_roCount(uint32_t* count);
RK_API unsigned int dio_rwCount(uint32_t* count);

/*
 * Reads a value, 0 or 1, into `value`: dio_roValue() that of an input, dio_rwValue() that of an
 * output.
 *
 * Returns DIO_OK, DIO_ERR_RANGE, DIO_ERR_NOENT, DIO_ERR_LEXICAL when the file's first character is
 * neither 0 nor 1, or DIO_ERR_IO: also for an empty file, and, before anything else, for NULL.
 */
RK_API unsigned int dio_roValue(uint32_t number, unsigned char* value);
RK_API unsigned int dio_rwValue(uint32_t number, unsigned char* value);

/*
 * Switches an output on, with any `value` but 0, or off.
 *
 * Returns DIO_OK, DIO_ERR_RANGE, DIO_ERR_NOENT or DIO_ERR_IO.
 */
RK_API unsigned int dio_setValue(uint32_t number, int value);

/*
 * Reads the frequency that is measured on an input. `value` gets the lowest 32 bits of its number,
 * also where unsigned long has more. What a number beyond the range of long puts into `first` or
 * `second` is left to the C library (scanf(3)); it does not disturb the others.
 *
 * Returns DIO_OK; DIO_ERR_INACTIVE when nothing is measured, all fields being filled in;
 * DIO_ERR_RANGE; DIO_ERR_NOENT; DIO_ERR_LEXICAL when the file does not begin with three numbers,
 * those in front of what is wrong being filled in; or DIO_ERR_IO: also for an empty file, and,
 * before anything else, for NULL.
 *
 * Logs LOG_ERR "Can't fopen(%s) - (%s)", "Can't fscanf(%s) - (%s)" and "Can't fclose(%s) - (%s)"
 * where others log opening, reading and closing.
 */
RK_API unsigned int dio_frequency(uint32_t number, DioFrequency* frequency);

/*
 * Asks whether the frequency of an input is being measured: stores 1 or 0 into `active`. The
 * question is a write to the driver, which refuses it (EEXIST) for "yes". So a "yes" is logged as a
 * failed write too, for every time that it is asked; people know the message.
 *
 * Returns DIO_OK; DIO_ERR_INACTIVE when the driver refuses with another error; DIO_ERR_RANGE;
 * DIO_ERR_NOENT; or DIO_ERR_IO: when it cannot be asked, takes the question in part, and, before
 * anything else, for NULL.
 */
RK_API unsigned int dio_frequencyActive(uint32_t number, unsigned char* active);

/*
 * Begins to measure the frequency of an input, with any `on` but 0, or ends it.
 *
 * Returns DIO_OK; DIO_ERR_ACTIVE when it is to begin and has begun before (the driver says EEXIST);
 * DIO_ERR_INACTIVE when it is to end and has not begun (ENOENT); DIO_ERR_RANGE; DIO_ERR_NOENT; or
 * DIO_ERR_IO.
 */
RK_API unsigned int dio_setFrequencyActive(uint32_t number, int on);

/*
 * Fills a record: counts, as dio_roCount() or dio_rwCount() does, and reads the value of each
 * number from 1 to `count`. Bits of higher numbers stay as they are.
 *
 * Returns DIO_OK, or the result of the first value that cannot be read: the values before it are in
 * the record then, and `count` counts them all.
 *
 * Asserts "status != NULL", and "status->count <= MAX_DIO_IN_COUNT" or "status->count <=
 * MAX_DIO_OUT_COUNT": a driver that shows more than 99 matching folders ends the program.
 */
RK_API unsigned int dio_getStatusIn(DioStatus* status);
RK_API unsigned int dio_getStatusOut(DioStatus* status);

/*
 * Fills `in` as dio_getStatusIn() does, and then `out` as dio_getStatusOut() does. Both count both
 * directions.
 *
 * Returns DIO_OK; the result of `in` when that fails, `out` being untouched; or that of `out`.
 *
 * Asserts "status != NULL", and then what the two assert.
 */
RK_API unsigned int dio_getStatus(DioStatusAll* status);

/*
 * Switches the outputs 1 to `count` as the record says, one after the other. It does not look at
 * how many there are.
 *
 * Returns DIO_OK, or the result of the first that cannot be switched, those behind it being left.
 *
 * Asserts "status != NULL" and "status->count <= MAX_DIO_OUT_COUNT".
 */
RK_API unsigned int dio_setStatusOut(const DioStatus* status);

/*
 * The value of a number in a record of inputs, or of outputs: 1 or 0.
 *
 * Assert "status != NULL", that the record describes the number, "dio < status->count +
 * DIORONUMBER_MIN", and that it is one, "dio <= DIORONUMBER_MAX" and "dio >= DIORONUMBER_MIN"; for
 * outputs with DIORWNUMBER_MIN and DIORWNUMBER_MAX. It is the functions dio_getIndexMaskIn and
 * dio_getIndexMaskOut that the last two name.
 */
RK_API int dio_getInValueFromStatus(const DioStatus* status, uint32_t dio);
RK_API int dio_getOutValueFromStatus(const DioStatus* status, uint32_t dio);

/*
 * Puts the value of a number into a record of inputs, or of outputs: 1 for any `value` but 0. No
 * output is switched. Assert what the two above do.
 */
RK_API void dio_setInValueInStatus(DioStatus* status, uint32_t dio, int value);
RK_API void dio_setOutValueInStatus(DioStatus* status, uint32_t dio, int value);

#ifdef __cplusplus
}
#endif

#endif
