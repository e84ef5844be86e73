// The network families beside what a developer would use otherwise.

#include "network/rows.h"
#include "support/comparison.h"

int main(int argc, char** argv) {
  bench::network::add_address_rows();
  bench::network::add_route_rows();
  bench::network::add_ping_rows();
  return bench::run(argc, argv);
}
