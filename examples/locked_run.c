/*
 * locked-run: runs a shell command while it holds a lock, so that of all commands that are run with
 * the same lock one runs at a time.
 *
 *     locked-run [-n] NAME COMMAND
 *
 * NAME is "/" and a word. With -n it does not wait for a lock that is held. It exits as the command
 * does; with 1 if that was not run, or killed.
 */

#include <rkutils/command.h>
#include <rkutils/semaphore.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char** argv) {
  const int waits = argc < 2 || strcmp(argv[1], "-n") != 0;
  char** const arguments = waits ? argv + 1 : argv + 2;
  if (argv + argc - arguments != 2) {
    fputs("usage: locked-run [-n] NAME COMMAND\n", stderr);
    return EXIT_FAILURE;
  }
  sem_handle* lock = sem_create(arguments[0]);
  const int result = waits ? sem_lock(lock) : sem_trylock(lock);
  int status = -1;
  if (result == 0 || result == EOWNERDEAD) {
    if (result == EOWNERDEAD) {
      puts("whoever had the lock last died before its command ended");
      fflush(stdout);
    }
    status = run_command(arguments[1], 0);
    sem_unlock(lock);
  } else if (result == EBUSY) {
    puts("another command is running");
  } else {
    printf("no lock: %s\n", result > 0 ? strerror(result) : "see the log");
  }
  sem_release(lock);
  return status >= 0 ? status : EXIT_FAILURE;
}
