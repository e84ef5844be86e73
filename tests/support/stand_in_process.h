// A stand-in daemon as a process of its own.
#ifndef TESTS_SUPPORT_STAND_IN_PROCESS_H
#define TESTS_SUPPORT_STAND_IN_PROCESS_H

#include <rkutils/internal/unique_fd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

namespace support {

// The machine does not allow what the stand-in needs; what() says what. A test that needs it is
// skipped.
class StandInRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Starts, commands and ends it. Ends with the object.
class StandInProcess {
 public:
  StandInProcess() = default;
  ~StandInProcess() { kill(); }
  StandInProcess(const StandInProcess&) = delete;
  StandInProcess& operator=(const StandInProcess&) = delete;

  // Starts a program of the build tree, with "--control FD" before its other arguments, and waits
  // until it serves. Throws when it does not: StandInRefused where it says "refused: " and why. It
  // inherits the descriptor `inherited`, if not -1.
  void start(const std::string& program, const std::vector<std::string>& arguments, int inherited);

  // Ends it, as a crash does.
  void kill();

  // Gives it a command and waits until it is obeyed. Throws std::runtime_error when it is refused.
  void command(const std::string& text);

  // Its process id; -1 when it does not run.
  [[nodiscard]] pid_t id() const { return id_; }

 private:
  std::string receive_outcome();

  pid_t id_ = -1;
  rkutils::internal::UniqueFd control_;
};

}  // namespace support

#endif
