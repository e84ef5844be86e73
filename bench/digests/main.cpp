// Digests beside those of libraries that have nothing else to do.

#include "digests/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::digests::add_hash_context_rows();
  bench::digests::add_hmac_context_rows();
  return bench::run(argc, argv);
}
