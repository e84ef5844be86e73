/*
 * modem-command: sends a command to a cellular card and prints the answer.
 *
 *     modem-command CARD COMMAND
 *
 * Waits up to half a minute for it. What went wrong with the connection is in the log.
 */

#include <rkutils/memory.h>
#include <rkutils/text.h>
#include <rkutils/wwanmd.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static wwanmd_buffer buffer; /* 8 KiB are much for a stack */

int main(int argc, char** argv) {
  int valid = -1;
  const int32_t card = argc == 3 ? validValueOf32(&valid, argv[1]) : 0;
  if (valid != 0) {
    fputs("usage: modem-command CARD COMMAND\n", stderr);
    return EXIT_FAILURE;
  }
  if (wwanmd_is_suspended(card) == 1) printf("card %d is suspended\n", (int)card);
  wwanmd_connection* modem = wwanmd_init(card, "modem-command");
  if (modem == NULL) return EXIT_FAILURE;

  buffer.length = (int)strlcpy(buffer.data, argv[2], sizeof buffer.data);
  buffer.timeout = 30;
  const int result = wwanmd_command(modem, &buffer);
  if (result == 0) {
    printf("%s\n", buffer.data);
  } else if (buffer.length >= 0 && buffer.data[0] != '\0') {
    printf("not done: %s\n", buffer.data);
  } else {
    puts("no answer");
  }
  wwanmd_free(modem);
  return result == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
