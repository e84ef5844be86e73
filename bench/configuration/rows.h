// The rows of the configuration's table, subject by subject, and the keys that all of them use.
#ifndef BENCH_CONFIGURATION_ROWS_H
#define BENCH_CONFIGURATION_ROWS_H

#include <string>

namespace bench::configuration {

void add_configd_rows();
void add_cfread_rows();
void add_config_reader_rows();

inline std::string key(int number) { return "interface." + std::to_string(number) + ".address"; }
inline std::string value(int number) { return "192.0.2." + std::to_string(number % 256); }

}  // namespace bench::configuration

#endif
