/*
 * Reader of plain-text configuration files: one entry "key=value" a line, comments, includes.
 *
 *     cfread_table *table = cfread_open("/etc/uplink.conf");
 *     if (table == NULL) return -1;                      (the log says which line is wrong)
 *     cfread_entry *mtu = cfread_find_entry(table, "mtu");
 *     if (mtu != NULL) set_mtu(mtu->int_value);
 *     cfread_close(table);
 *
 * cfread_open() reads a file into a table to be asked by key. cfread_parse_with_callback() passes
 * each entry to a function instead and keeps nothing. read_file_lines() reads any text file as a
 * list of lines, and knows nothing of what is described here.
 *
 * Files. Each line is one of these:
 *   key=value      an entry
 *   # anything     a comment; only "#" as the very first character begins one
 *   include NAME   the file NAME is read at this place, as if its entries stood here. White space
 *                  around NAME is not part of it. NAME that begins with "/" is a path, any other is
 *                  looked for in the folder of the including file: "include sub.conf" in
 *                  "/etc/a/b.conf" is "/etc/a/sub.conf". The word is lower case, stands at the
 *                  line's beginning, and has one space, not a tab, behind it.
 *   (blank)        nothing
 *
 * Of an entry, the first "=" ends the key. Spaces are removed from the key wherever they stand, and
 * from the beginning of the value; inside the value and at its end they stay:
 * "  my key =  some value = x " is the key "mykey" and the value "some value = x ". Bytes of 128
 * and above are removed from key and value. They count in the line's length all the same, stay in
 * the name of an include, and a line that begins with one is neither comment nor include. A tab is
 * an ordinary character of key and value. There is no quoting and no escaping. A carriage return
 * ends an entry as a line feed does, and what stands between the two is not read. In an include it
 * is white space: removed around the name, kept inside it.
 *
 * Limits. A key and a value have up to 255 bytes each; a space that is met when the key has 255
 * already is one too many, although it would be removed. A line has up to 1022 bytes and its line
 * feed. Every line but a comment or an include must have its end, the last line of a file too. A
 * NUL byte ends the line's text without a line end, so outside of those two it is an error. A
 * longer comment or include goes on as a line of its own at its 1024th byte; a name that fills
 * the line up to there may have been cut and is not opened. A path has up to 511 bytes; one that
 * is made of a folder and an include's name, up to 510.
 *
 * Includes nest as deep as the process may have files open, at about 5 KiB of memory each and none
 * of the stack. A file that includes itself is not recognised as such: it is opened again and again
 * until no descriptor or memory is left, and then fails as one that cannot be opened, unless a
 * callback has ended it before. Other threads lack descriptors and memory until then. Where memory
 * runs out first, it may be an entry that lacks it: see cfread_set_entry(), which ends the process
 * when it is for slots. Of a failed reading all files are closed before its message is logged, so
 * that a descriptor is there for a log that the program is not connected to yet.
 *
 * Messages go to syslog with the host program's settings, all LOG_ERR. While a file is read:
 *     cfread: no config file given                             the path is NULL or empty
 *     cfread: unable to open FILE                              missing, not readable, too long a
 *                                                              path, a name that may be cut, no
 *                                                              descriptor or memory left
 *     cfread: no include file given in FILE                    "include " without a name
 *     cfread: max. key length exceeded in FILE at line N
 *     cfread: max. value length exceeded in FILE at line N
 *     cfread: non-terminated entry in FILE at line N           no line end, or a NUL
 *     cfread: unable to add entry in FILE at line N            cfread_set_entry() failed
 * Each of them ends the reading of all files, and the whole call fails. It is the only message but
 * in the last case, where that of cfread_set_entry() stands before it. FILE is the
 * path as it was opened. N counts from 1 and does not count include lines, so behind two of these
 * it is two less than an editor shows; programs that read the log know it so.
 *
 * A folder can be opened but not read, and so it is an empty file. Reading a FIFO waits for its
 * writer. Files are opened close-on-exec.
 *
 * Threads and signals. Nothing is locked. Threads may ask one table at the same time as long as
 * none of them changes it; different tables are independent. The functions are not for signal
 * handlers. A call that a signal interrupts goes on. A thread that is cancelled (pthread_cancel(3))
 * finishes its call first, callbacks included.
 */
#ifndef RKUTILS_CFREAD_H
#define RKUTILS_CFREAD_H

#include <rkutils/export.h>
#include <rkutils/list.h>

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Takes one entry of a file. Key and value are valid until it returns. `userdata` is what was given
 * to cfread_parse_with_callback().
 *
 * Returns 0 to go on. Anything else ends the file that the entry stands in, as if that had no more
 * lines, and no other: when it is an included one, the including file goes on with its next line.
 */
typedef int (*cfread_callback)(const char* key, const char* value, void* userdata);

/* An entry of a table. All of it belongs to the table; programs read it and do not change it. */
typedef struct cfread_entry {
  uint32_t index; /* the number of its slot */
  char* key;
  char* value;    /* "" where none was given */
  long int_value; /* the value as a number, see cfread_set_entry() */
} cfread_entry;

/*
 * A table. Programs read it and change it with cfread_set_entry() alone. The entries lie in an
 * array of slots, in no particular order; an entry keeps its slot until it is replaced.
 *
 * A table of a program's own, with all bytes 0 and in memory from malloc() or zalloc(), is an empty
 * one without a file: messages name "" for it, and cfread_close() frees it.
 *
 * Programs that write into a table nonetheless get this:
 *    A slot set to NULL: its entry is the program's to free, and not found any more. The slot is
 *       filled next when the program lowers `count` too; otherwise when no other is free and the
 *       array has to move, or not at all.
 *    An entry put into a slot: it is found and replaced only where the slot's last entry had the
 *       same key, and never overwritten. cfread_close() frees it with its key and value.
 *    `count`: goes on from the new number, and has no other effect.
 *    `size`: slots beyond it are not filled, and their entries not freed by cfread_close(), though
 *       still found. No slot beyond the array's memory is touched.
 *    `entries`: must not be changed, and `filename` only to a text that outlives its use.
 */
typedef struct cfread_table {
  int32_t count;            /* slots in use */
  int32_t size;             /* slots, a multiple of 64; 0 before the first entry */
  cfread_entry** entries;   /* the slots, NULL in each that is free */
  const char* filename;     /* the file's path, for messages; a copy of the table's own */
  cfread_callback callback; /* this and what follows is for reading with a callback: NULL here */
  void* userdata;
  bool report_empty;
} cfread_table;

/* One line, as an element of the list of read_file_lines(). */
typedef struct file_line {
  list_node links;
  char* text; /* without its line end */
} file_line;

/*
 * Reads the file `path` with its includes into a new table. Where a key stands twice, the later
 * line counts, also across files. An entry with an empty key or an empty value is passed over in
 * silence, as if the line were not there: "key=" does not undo an earlier "key=value".
 *
 * Returns the table, to be released with cfread_close(); or NULL, with nothing left allocated or
 * open: when reading fails, with a message of the list above; or LOG_ERR "cfread: no mem to alloc
 * config table". Ends the process as cfread_set_entry() does.
 */
RK_API cfread_table* cfread_open(const char* path);

/*
 * Frees the table with all its entries, which makes every pointer into it invalid. NULL does
 * nothing.
 */
RK_API void cfread_close(cfread_table* table);

/*
 * Finds the entry with exactly this key; upper and lower case differ. Takes about the same time in
 * tables of any size.
 *
 * Returns the entry, which is valid until it is replaced or the table is closed; or NULL when there
 * is none, or when the table is NULL or the key NULL or empty. Nothing is logged.
 */
RK_API cfread_entry* cfread_find_entry(cfread_table* table, const char* key);

/*
 * Adds an entry with copies of `key` and `value`, of any length and with any bytes; a NULL value
 * counts as "". An entry with the same key is freed first and its slot emptied. The new one goes to
 * the lowest slot that is free. When there is none, 64 slots are added. Key and value may lie in
 * the entry that is replaced.
 *
 * `int_value` becomes
 *    the number that the value is, when that is a decimal number, with or without "+" or "-"
 *        before it; but -1 for 2147483647 and above and for -2147483648 and below, on every host
 *    0   for "+" or "-" alone, and for "false"
 *    1   for "true"
 *   -1   for anything else: the empty value, "0x10", "5 ", "True"
 *
 * Returns the entry; or NULL: for a NULL table, a NULL or empty key, with nothing logged or
 * changed; or LOG_ERR "cfread: unable to add entry '%s' in %s" (the key and the table's file) when
 * there is no memory. An entry with the same key is gone then. If the memory is lacking for the
 * copy of key or value, slot 0 is emptied too, whatever entry it holds, without freeing that, and
 * the count goes down by one: programs rely on that. Who still has a pointer to that entry may go
 * on reading it and may free it: key, value and the entry, each with free().
 *
 * When slots cannot be added, for want of memory or because their number would not fit `size`, it
 * logs LOG_EMERG "cfread: unable to get a free index" and ends the process: exit(1).
 */
RK_API cfread_entry* cfread_set_entry(cfread_table* table, const char* key, const char* value);

/*
 * Reads the file `path` with its includes and passes each entry to `callback`, in the order of the
 * lines, with `userdata` as it is. Entries that are there several times are passed several times.
 * With `report_empty`, blank lines are passed too, as an empty key and an empty value, and so are
 * entries of which either is empty ("key", "key=", "=value"); without it they are passed over.
 * Comments and includes are not passed.
 *
 * Returns 0, also when the callback has ended a file; or -1: `callback` is NULL (nothing is logged
 * or read), or reading fails, with a message of the list above. What came before the failure has
 * been passed by then. The callback must return, and throw no exception; it may read other files.
 */
RK_API int cfread_parse_with_callback(const char* path, cfread_callback callback, void* userdata,
                                      bool report_empty);

/*
 * Appends the lines of the file `path` to `list`, whose head the caller has initialised, as
 * elements of type file_line. A text ends before the first line feed, carriage return or NUL of its
 * line. A line of more than 1023 bytes, its line feed counted, makes several elements: one of each
 * 1023 bytes, and one of the rest, which is "" where only the line feed is left.
 *
 * Returns the number of lines, 0 for an empty file or a folder; -1 when the file cannot be opened,
 * or path or list is NULL (nothing is logged); -10 when there is no memory for a line, after
 * LOG_ERR "Zalloc failed, errno: %s" with strerror(errno). The lines appended before a failure stay
 * in the list.
 *
 * The elements are the caller's, who frees text and element of each with free():
 *
 *     list_for_each_safe(cursor, following, &lines) {
 *       file_line *line = list_entry(cursor, file_line, links);
 *       list_del(cursor);
 *       free(line->text);
 *       free(line);
 *     }
 */
RK_API int read_file_lines(const char* path, list_node* list);

#ifdef __cplusplus
}
#endif

#endif
