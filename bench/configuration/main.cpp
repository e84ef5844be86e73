// Reading the configuration, from the daemon and from files, beside what a developer would use
// otherwise, and beside plain code that does the least that each kind of work takes.

#include "configuration/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::configuration::add_configd_rows();
  bench::configuration::add_cfread_rows();
  bench::configuration::add_config_reader_rows();
  return bench::run(argc, argv);
}
