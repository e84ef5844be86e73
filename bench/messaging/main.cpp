// Messages to other programs, and commands, beside what a developer would use otherwise, and beside
// plain code that does the least that each kind of work takes.

#include "messaging/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::messaging::add_command_rows();
  bench::messaging::add_event_rows();
  bench::messaging::add_status_rows();
  return bench::run(argc, argv);
}
