// The foundations beside what a developer would use otherwise, and beside plain code that does the
// least that each kind of work takes.
//
// Such code, a floor, is called as the library is where the work is one short call: through a
// pointer that the compiler cannot see through, as the linker's table is one.

#include "foundations/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::foundations::add_string_rows();
  bench::foundations::add_hash_rows();
  bench::foundations::add_format_rows();
  bench::foundations::add_number_rows();
  bench::foundations::add_memstream_rows();
  bench::foundations::add_file_rows();
  return bench::run(argc, argv);
}
