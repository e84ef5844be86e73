/*
 * What device this is and what it is doing: the variables of its image, its product name, hardware
 * type and boards, whether maintenance runs; and the generations of mobile networks.
 *
 *     systeminfo *info = systeminfo_init();
 *     printf("%s, hardware type %d\n", get_product(), dwhw());
 *     printf("build %d\n", systeminfo_getint(info, "BUILD"));
 *     if (in_maintenance()) puts("maintenance is running");
 *     systeminfo_free(info);
 *
 * Everything is read from files, when it is asked for:
 *
 *     /etc/default/system-info          lines name=value: systeminfo_init()
 *     /etc/oem/oem.conf                 lines key=value, of who sells the device: oem(),
 *                                       get_product()
 *     /proc/sysinfo/dwhw                hardware type, a decimal number: dwhw(), has_poe()
 *     /proc/sysinfo/bd/0/prod_name      product name of the main board: get_product()
 *     /proc/sysinfo/bd/1/prod_variant   variant of the extension board, a decimal number:
 *                                       get_extension_variant(), has_poe()
 *     /dev/sim                          there when the device has a SIM holder: has_sim_holder()
 *     /tmp/progress/...                 there while maintenance runs: in_maintenance()
 *
 * Failures. Nothing is logged. What cannot be read gives the empty text, -1, 0 or NULL, as said
 * below; errno means nothing. Whether something is readable is asked with access(2) where that is
 * said, and for the files in /proc/sysinfo, so for the real user of a set-user-id program.
 *
 * Numbers are read as atoi(3) does: white space, a sign, digits, and what follows is ignored; a
 * text that is no number gives 0. One that an int cannot hold wraps in 32 bits, on every host:
 * "4294967298" is 2.
 *
 * RESULTS THAT OTHER CALLS OVERWRITE. Copy what is to be kept.
 *   - readfile()'s: by get_product(), get_extension_variant(), has_poe(), and by dwhw() as long as
 *     it has not read the hardware type.
 *   - oem()'s result: by the next oem(), and by get_product() where there is an OEM file.
 *   - get_product()'s result: by the next get_product().
 *
 * Blocking: nothing waits but for the medium, and for the other end of a FIFO in the place of one
 * of the files.
 *
 * Threads and signals. systeminfo_init() and a table of one's own, get_generation(),
 * has_sim_holder() and in_maintenance() may be used by several threads at once. All others share
 * buffers that belong to the library, or the remembered hardware type, without a lock: one thread
 * at a time, and readfile() counts among them. A thread that is cancelled (pthread_cancel(3))
 * finishes its call first. Nothing here is for signal handlers. Descriptors are opened
 * close-on-exec, and none stays open.
 *
 * oem() is a general name. A program that links the shared library may define a function of that
 * name in a file that does not include this header: its own calls reach its own function, and the
 * library's the library's. With the static library the two collide.
 */
#ifndef RKUTILS_SYSTEMINFO_H
#define RKUTILS_SYSTEMINFO_H

#include <rkutils/export.h>
#include <rkutils/file.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The image's variables ---- */

/* The variables of "/etc/default/system-info", as they were when it was read. */
typedef struct systeminfo systeminfo;

/*
 * Reads "/etc/default/system-info". Its lines are "name=value":
 *   - Spaces before the name do not belong to it; those after it do. It ends before the first "=",
 *     and may be empty.
 *   - The value is all that follows, as it stands: with its leading spaces, AND WITH THE NEWLINE
 *     that ends the line. Programs rely on both, so they stay. A line whose "=" only the newline
 *     follows has the value "\n".
 *   - A value that begins with a double quote, right after the "=", loses it and ends before the
 *     next double quote or newline; what follows is ignored. There is no escaping. This is the way
 *     to have a value without its newline, or an empty one.
 *   - Skipped are lines whose first character other than a space is "#", lines without "=", and a
 *     line, or a piece of one (see below), with nothing behind its "=", not even a newline: at the
 *     file's end, at the piece's, and where a NUL follows.
 *
 * A line is read in pieces of at most 1022 characters, the newline included; each piece counts as a
 * line of its own. A NUL hides the rest of its piece, and a piece that begins with one ends the
 * reading; so does a failing read, and the piece that it ends does not count. What was read until
 * then is the table: that of a directory, for instance, is empty.
 *
 * Returns the table, to be released with systeminfo_free(); or NULL: the file cannot be opened, it
 * has more than 256 variables, or there is no memory.
 */
RK_API systeminfo* systeminfo_init(void);

/*
 * The value of the variable `name`, compared exactly; the first one's where several lines have the
 * name.
 *
 * Returns a text that belongs to the table and lives as long; or the empty text, a constant, when
 * there is no such variable, and when `info` or `name` is NULL.
 */
RK_API const char* systeminfo_getvar(const systeminfo* info, const char* name);

/*
 * The value of the variable `name` as a number.
 *
 * Returns the number, 0 for a value that is none (a newline alone, for instance); or -1 when there
 * is no such variable or its value is empty, and when `info` or `name` is NULL.
 */
RK_API int systeminfo_getint(const systeminfo* info, const char* name);

/* Frees a table and the texts in it. NULL does nothing. */
RK_API void systeminfo_free(systeminfo* info);

/* ---- What product this is ---- */

/*
 * The value of `key` in "/etc/oem/oem.conf": that of the first line that begins with the key and,
 * right after it, "=". Spaces at the beginning of a line count as part of the key, those after the
 * "=" are skipped, all others stay. The line's newline does not belong to the value.
 *
 * A line is read in pieces of at most 1023 characters, each of which counts as a line of its own. A
 * NUL hides the rest of its piece, and a piece that begins with one ends the reading; so does a
 * failing read, and the piece that it ends does not count. Blank lines do not end it.
 *
 * Returns the value, in a buffer of 1024 bytes that belongs to the library; or the empty text: no
 * such key, a NULL key, or a file that cannot be read. Never NULL. The next call overwrites the
 * buffer, whatever it finds; a result is not a key for the next call.
 */
RK_API const char* oem(const char* key);

/*
 * The product's name, at most 127 characters.
 *
 * Where "/etc/oem/oem.conf" is readable (access(2)), that file names the product: the value of
 * "ProductType.DW" followed by the main board's product name, together cut to 30 characters; if it
 * has none, that of "ProductType"; and if it has neither, THE NAME IS EMPTY. Otherwise it is "DW"
 * followed by the main board's product name, cut to 126 characters together: "DW" alone when that
 * cannot be read.
 *
 * Returns the name in a buffer of 128 bytes that belongs to the library. Never NULL. The next call
 * overwrites it. Overwrites the results of readfile() and oem().
 */
RK_API char* get_product(void);

/* ---- What hardware it has ---- */

/*
 * The hardware type. Read from "/proc/sysinfo/dwhw" once and then remembered for the life of the
 * process, except that the next call looks again after a file that cannot be read or has no text,
 * and after a type of -1.
 *
 * Returns the type; or -1 when it cannot be read. Overwrites readfile()'s result while nothing is
 * remembered.
 */
RK_API int dwhw(void);

/*
 * The variant of the extension board, read from "/proc/sysinfo/bd/1/prod_variant" each time.
 *
 * Returns the variant; or -1 when it cannot be read or is empty. Overwrites readfile()'s result.
 */
RK_API int get_extension_variant(void);

/*
 * Tells whether the device has PoE (power over Ethernet): it is of hardware type 18, and the
 * extension board's variant is 0 (also one that is text but no number).
 *
 * Returns 1 or 0. Overwrites readfile()'s result.
 */
RK_API int has_poe(void);

/*
 * Tells whether the device has a SIM holder.
 *
 * Returns 1 if "/dev/sim" is readable (access(2)), otherwise 0.
 */
RK_API int has_sim_holder(void);

/* ---- What it is doing ---- */

/*
 * Tells whether a maintenance operation is in progress. Each has a marker, which is there while it
 * runs: "swupdate", "bdupdate", "fwupdate", "config", "switch-software", "switch-config" and
 * "sshkeys" in the directory "/tmp/progress".
 *
 * Returns 1 if any of them is readable (access(2)), otherwise 0.
 */
RK_API int in_maintenance(void);

/*
 * The generation of the mobile network that a radio technology belongs to. Names are compared
 * without regard to case (strcasecmp(3)):
 *   2  CSD, GPRS, EDGE
 *   3  UMTS, HSDPA, HSUPA, HSPA, HSPA+, CDMA
 *   4  LTE
 *   5  ENDC, 5G
 *
 * Returns the generation; or -1 for any other name and for NULL.
 */
RK_API int get_generation(const char* technology);

#ifdef __cplusplus
}
#endif

#endif
