// What linking the library costs a program, whatever it does.

#include "start/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::start::add_start_rows();
  return bench::run(argc, argv);
}
