// The rows of the hardware's table, subject by subject.
#ifndef BENCH_HARDWARE_ROWS_H
#define BENCH_HARDWARE_ROWS_H

namespace bench::hardware {

void add_dio_rows();
void add_log_rows();

}  // namespace bench::hardware

#endif
