/*
 * run-commands: runs shell commands one after the other and tells how each comes out.
 *
 *     run-commands COMMAND...
 *
 * The first line of a command's output is shown behind it. A command that ends with "&" is left
 * running by itself, in no connection with this program.
 */

#include <rkutils/command.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The shell need not know of the "&". */
static void leave_running(const char* command) {
  char line[256];
  int length = snprintf(line, sizeof line, "%s", command);
  if (length < 0 || (size_t)length >= sizeof line) {
    puts("is too long");
    return;
  }
  line[length - 1] = '\0';
  int process = run_command(line, 1);
  puts(process > 0 ? "runs by itself" : "cannot be started"); /* the log says why */
}

static void run(const char* command) {
  char output[80];
  int length = eval_command(command, output, sizeof output);
  output[strcspn(output, "\n")] = '\0';
  if (length < 0) {
    puts("has failed");
  } else if (length == 0) {
    puts("is done");
  } else {
    printf("is done: %s\n", output);
  }
}

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    printf("%s ", argv[i]);
    fflush(stdout); /* before what the command may print */
    if (*argv[i] != '\0' && argv[i][strlen(argv[i]) - 1] == '&') {
      leave_running(argv[i]);
    } else {
      run(argv[i]);
    }
  }
  return EXIT_SUCCESS;
}
