// A process that is stopped again and again, to be killed wherever it is.
#ifndef TESTS_SUPPORT_STEPPED_PROCESS_H
#define TESTS_SUPPORT_STEPPED_PROCESS_H

#include <functional>

#include <sys/types.h>

namespace support {

// A child of this process, which goes on when it is told to. It is stopped before and after each of
// its system calls, and where a signal reaches it, which is lost. Killed before a system call, it
// does not make it. It ends with the object. Not more than one thread may use an object.
class SteppedProcess {
 public:
  // Calls `life` in a forked process, which then exits with what that returns.
  explicit SteppedProcess(const std::function<int()>& life);
  ~SteppedProcess();
  SteppedProcess(const SteppedProcess&) = delete;
  SteppedProcess& operator=(const SteppedProcess&) = delete;

  // Lets it go on by so many stops. False when it has ended instead.
  bool go_on(int stops = 1);

  // Likewise by so many instructions, each with the signals and system calls that it causes. Throws
  // std::system_error where the machine cannot do that: see has_instructions().
  bool go_on_by_instructions(int count);
  static bool has_instructions();

  // Lets it go on until it has made a process, which is meant from then on, in the place of the one
  // that made it: that one runs on by itself. Returns its id. Throws std::runtime_error when it has
  // ended instead.
  pid_t follow_its_child();

  // The exit status of the process, which must have ended by itself.
  [[nodiscard]] int status() const { return status_; }

  [[nodiscard]] pid_t id() const { return process_; }

  void kill() noexcept;

 private:
  bool go_on(int request, int count);

  pid_t process_ = -1;
  int status_ = -1;
};

// Waits for the end of a process that this one has made. Gives its exit status, or 128 + N where
// signal N ended it.
int status_at_end(pid_t process);

}  // namespace support

#endif
