// The rows of the table of starting.
#ifndef BENCH_START_ROWS_H
#define BENCH_START_ROWS_H

namespace bench::start {

void add_start_rows();

}  // namespace bench::start

#endif
