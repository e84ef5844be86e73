// The rows of the foundations' table, subject by subject.
#ifndef BENCH_FOUNDATIONS_ROWS_H
#define BENCH_FOUNDATIONS_ROWS_H

namespace bench::foundations {

void add_string_rows();
void add_hash_rows();
void add_format_rows();
void add_number_rows();
void add_memstream_rows();
void add_file_rows();

}  // namespace bench::foundations

#endif
