/*
 * configuration-values: prints configuration values.
 *
 *     configuration-values KEY...
 *
 * Asks the configuration daemon for all keys at once and prints a line "KEY=VALUE" for each.
 */

#include <rkutils/configd.h>

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
  configd_connection* config = configd_open();
  if (config == NULL) return EXIT_FAILURE; /* the log says why */

  for (int i = 1; i < argc; ++i) configd_add_query(config, "%s", argv[i]);
  for (int i = 1; i < argc; ++i) printf("%s=%s\n", argv[i], configd_fetch(config, "%s", argv[i]));

  configd_close(config);
  return EXIT_SUCCESS;
}
