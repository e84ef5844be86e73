// The rows of the digests' table, subject by subject.
#ifndef BENCH_DIGESTS_ROWS_H
#define BENCH_DIGESTS_ROWS_H

namespace bench::digests {

void add_hash_context_rows();
void add_hmac_context_rows();

}  // namespace bench::digests

#endif
