// The hardware families beside plain code that does the least that each kind of work takes.

#include "hardware/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::hardware::add_dio_rows();
  bench::hardware::add_log_rows();
  return bench::run(argc, argv);
}
