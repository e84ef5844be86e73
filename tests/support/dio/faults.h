// How the stand-in for the digital I/O driver misbehaves, on command.
#ifndef TESTS_SUPPORT_DIO_FAULTS_H
#define TESTS_SUPPORT_DIO_FAULTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace stand_in {

// What becomes of an operation.
struct Verdict {
  int error = 0;                 // it fails with this
  std::size_t taken = SIZE_MAX;  // of what is written this much is taken, at most
};

class DriverFaults {
 public:
  // Adds what `command` says: "OPERATION PATH DONE TIMES error NUMBER|take COUNT". Of these
  // operations DONE are done yet, and the TIMES after them are not. Throws std::invalid_argument
  // for anything else.
  void add(const std::string& command);

  // The verdict on an operation that has come.
  Verdict judge(const std::string& operation, const std::string& path);

 private:
  struct Fault {
    std::string operation;
    std::string path;
    unsigned done = 0;
    unsigned times = 0;
    Verdict verdict;
  };

  std::vector<Fault> faults_;
};

}  // namespace stand_in

#endif
