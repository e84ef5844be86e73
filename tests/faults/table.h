// The table of cases: which call fails in which scenario, and what comes of it.
//
// A line is a case, with five columns:
//
//     SCENARIO | CALL | NTH | ERRNO | OUTCOME
//
// CALL is a kind of system call as fault.h names it; "memory" for an allocation; or "none" for the
// outcome when nothing fails, which each scenario has. "stat@glibc" is for builds with that C
// library alone, "stat@musl" for the other one; "stat?" is for a call that some versions of either
// make on their own account, and others do not.
// NTH is which of the scenario's calls of that kind fails: "2", "last", "last-1"; "2..4" for one of
// them at a time; "each" for "1..last"; "all" for all of them at once.
// "none" for a call that is not made to fail in this scenario; OUTCOME says why then.
// ERRNO is one errno value or several, separated by spaces, each a case. "-" for "none" and
// "memory". OUTCOME is as Observation has it. "same" is that of "none". In it stand for the errno
// at hand: %name ("EACCES"), %number (13) and %text (strerror()).
//
// Where an allocation has several lines, any of their outcomes is right, and each has to come up.
#ifndef TESTS_FAULTS_TABLE_H
#define TESTS_FAULTS_TABLE_H

#include <string>
#include <vector>

namespace faults {

// One of a scenario's calls, counted from the first or, if negative, from behind the last.
using Position = int;

struct Row {
  int line = 0;  // in the file
  std::string scenario;
  std::string call;
  std::string c_library;  // empty for both
  bool optional = false;  // not every C library makes the call
  std::string nth;
  Position first = 0;  // the calls meant, one at a time; nothing for "all"
  Position last = 0;
  std::vector<std::string> errors;
  std::string outcome;

  // Whether it says why calls are not made to fail.
  [[nodiscard]] bool is_excuse() const { return nth == "none"; }

  // Whether it is about this call of so many.
  [[nodiscard]] bool is_for(unsigned number, unsigned count) const;
};

// The rows of "cases/NAME.txt", those for the other C library too. Throws std::runtime_error for a
// line that is not one of the table.
std::vector<Row> read_table(const std::string& name);

// Those for the C library that this program is built with.
std::vector<Row> read_table_for_this_library(const std::string& name);

// An outcome with what stands for the errno put in.
std::string with_error(const std::string& outcome, int error);

}  // namespace faults

#endif
