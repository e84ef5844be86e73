// Tables for people, and files for programs.
#ifndef BENCH_SUPPORT_REPORT_H
#define BENCH_SUPPORT_REPORT_H

#include <string>
#include <vector>

#include "support/figures.h"

namespace bench {

void print_table(const std::vector<Row>& rows);

// For instructions: with the system calls, and without goals.
void print_counts(const std::vector<Row>& rows);

// False when the file cannot be written.
bool write_json(const std::vector<Row>& rows, int rounds, const std::string& path);

}  // namespace bench

#endif
