// The rows of the messaging's and the commands' table, subject by subject.
#ifndef BENCH_MESSAGING_ROWS_H
#define BENCH_MESSAGING_ROWS_H

namespace bench::messaging {

void add_command_rows();
void add_event_rows();
void add_status_rows();

}  // namespace bench::messaging

#endif
