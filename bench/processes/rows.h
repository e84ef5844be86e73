// The rows of the processes' table, subject by subject.
#ifndef BENCH_PROCESSES_ROWS_H
#define BENCH_PROCESSES_ROWS_H

namespace bench::processes {

void add_lock_rows();
void add_table_rows();

}  // namespace bench::processes

#endif
