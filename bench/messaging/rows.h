// The rows of the messaging table, subject by subject.
#ifndef BENCH_MESSAGING_ROWS_H
#define BENCH_MESSAGING_ROWS_H

namespace bench::messaging {

void add_status_rows();

}  // namespace bench::messaging

#endif
