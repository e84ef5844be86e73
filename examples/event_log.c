/*
 * event-log: the router's persistent log of notable events.
 *
 *     event-log                    prints it, newest first
 *     event-log add CODE TEXT
 *     event-log clear
 *
 * What fails is reported on standard error.
 */

#include <rkutils/dwlog.h>
#include <rkutils/text.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The 33 entries that there can be, unless somebody has written very long ones. */
static int show(void) {
  static char text[33 * 1024];
  const int result = dwlog_read(text, sizeof text);
  if (result == 0) fputs(text, stdout);
  return result;
}

static int add(const char* code, const char* text) {
  int valid = 0;
  const int32_t number = validValueOf32(&valid, code);
  if (valid == 0) return dwlog(number, text);
  fprintf(stderr, "event-log: no number: %s\n", code);
  return -1;
}

int main(int argc, char** argv) {
  int result = -1;
  if (argc == 1) {
    result = show();
  } else if (argc == 4 && strcmp(argv[1], "add") == 0) {
    result = add(argv[2], argv[3]);
  } else if (argc == 2 && strcmp(argv[1], "clear") == 0) {
    result = dwlog_clear();
  } else {
    fputs("usage: event-log [add CODE TEXT | clear]\n", stderr);
  }
  return result == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
