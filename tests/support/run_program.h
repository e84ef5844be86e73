// Running another program to its end.
#ifndef TESTS_SUPPORT_RUN_PROGRAM_H
#define TESTS_SUPPORT_RUN_PROGRAM_H

#include <string>
#include <vector>

namespace support {

struct Outcome {
  std::string output;  // what it wrote to standard output and standard error
  int status;          // its exit status; 128 + N where signal N ended it
};

// Runs the program `words[0]`, searched in PATH, with the other words as its arguments.
Outcome run_program(const std::vector<std::string>& words);

}  // namespace support

#endif
