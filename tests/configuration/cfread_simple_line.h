// The rules for one line once more, a byte at a time and with copies, to compare with.
#ifndef TESTS_CONFIGURATION_CFREAD_SIMPLE_LINE_H
#define TESTS_CONFIGURATION_CFREAD_SIMPLE_LINE_H

#include <rkutils/configuration/cfread/line.h>

#include <ostream>
#include <string>

// A line with texts of its own.
struct SimpleLine {
  rkutils::cfread::LineKind kind = rkutils::cfread::LineKind::kEntry;
  std::string key = {};
  std::string value = {};
};

bool operator==(const SimpleLine& a, const SimpleLine& b);
std::ostream& operator<<(std::ostream& out, const SimpleLine& line);

SimpleLine read_simple_line(const std::string& text);

#endif
