/*
 * configuration-file: prints what is in a configuration file.
 *
 *     configuration-file FILE            all entries, in the order of the lines
 *     configuration-file FILE KEY...     the last entry of each key, and its value as a number
 */

#include <rkutils/cfread.h>

#include <stdio.h>
#include <stdlib.h>

static int print_entry(const char* key, const char* value, void* file) {
  fprintf(file, "%s=%s\n", key, value);
  return 0; /* go on */
}

static int print_values(cfread_table* table, char** keys, int count) {
  int status = EXIT_SUCCESS;
  for (int i = 0; i < count; ++i) {
    const cfread_entry* entry = cfread_find_entry(table, keys[i]);
    if (entry != NULL) {
      printf("%s=%s (%ld)\n", entry->key, entry->value, entry->int_value);
    } else {
      fprintf(stderr, "no %s\n", keys[i]);
      status = EXIT_FAILURE;
    }
  }
  return status;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: configuration-file FILE [KEY...]\n");
    return EXIT_FAILURE;
  }
  /* On failure the log says why. */
  if (argc == 2) {
    const int result = cfread_parse_with_callback(argv[1], print_entry, stdout, false);
    return result == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  cfread_table* table = cfread_open(argv[1]);
  if (table == NULL) return EXIT_FAILURE;
  const int status = print_values(table, argv + 2, argc - 2);
  cfread_close(table);
  return status;
}
