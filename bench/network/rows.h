// The rows of the network's table, subject by subject.
#ifndef BENCH_NETWORK_ROWS_H
#define BENCH_NETWORK_ROWS_H

namespace bench::network {

void add_address_rows();
void add_route_rows();
void add_ping_rows();

}  // namespace bench::network

#endif
