// Says by a byte on its standard output that it runs, and sleeps until it is ended. Its arguments,
// its name among them, are for others to look at.

#include <unistd.h>

int main() {
  if (::write(STDOUT_FILENO, "", 1) != 1) return 1;
  ::close(STDOUT_FILENO);
  for (;;) ::pause();
}
