// Processes and their locks beside what a developer would use otherwise, and beside plain code that
// does the least that each kind of work takes.

#include "processes/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::processes::add_lock_rows();
  bench::processes::add_table_rows();
  return bench::run(argc, argv);
}
