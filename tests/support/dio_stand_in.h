// A driver of digital inputs and outputs for tests and the demo.
#ifndef TESTS_SUPPORT_DIO_STAND_IN_H
#define TESTS_SUPPORT_DIO_STAND_IN_H

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <sys/types.h>

#include "support/kernel_folder.h"
#include "support/stand_in_process.h"

namespace support {

// An operation as the driver saw it.
struct DioOperation {
  std::string name;   // "opendir", "open" and so on: see the stand-in's main.cpp
  std::string path;   // relative to the driver's folder, which is "."
  std::string bytes;  // read or written; "r", "w" or "rw" of a file that is opened
  int error = 0;      // errno's number, 0 when it was done

  friend bool operator==(const DioOperation& a, const DioOperation& b);
  friend std::ostream& operator<<(std::ostream& out, const DioOperation& operation);
};

// Runs the stand-in as a process of its own, from construction to destruction, with its file system
// at the driver's place, "/sys/devices/halcyonix". For a private router only. It makes the folder
// by way of a KernelFolder, unless it is there: a test that has a KernelFolder for /sys itself
// calls make_folder("devices/halcyonix") first.
//
// Throws StandInRefused where the machine has no FUSE for us.
class DioStandIn {
 public:
  struct Setup {
    unsigned inputs = 0;     // din1 to this one
    unsigned outputs = 0;    // dout1 to this one
    int record_socket = -1;  // takes the record, a line a datagram, instead of operations()
  };

  explicit DioStandIn(const Setup& setup);
  DioStandIn(unsigned inputs, unsigned outputs) : DioStandIn(Setup{inputs, outputs}) {}
  ~DioStandIn();
  DioStandIn(const DioStandIn&) = delete;
  DioStandIn& operator=(const DioStandIn&) = delete;

  // Ends the process, as a crash does. Its file system stays, and fails.
  void kill() { process_.kill(); }

  // Its process id.
  [[nodiscard]] pid_t process() const { return process_.id(); }

  // Gives it a command, of those in the stand-in's main.cpp, and waits until it is obeyed. Throws
  // std::runtime_error when it is refused.
  void command(const std::string& text) { process_.command(text); }

  // Some of them.
  void add(const std::string& name) { command("add " + name); }
  void set_contents(const std::string& path, const std::string& bytes);
  void set_measured(unsigned input, const std::string& bytes);
  // Lets operations fail, and writes take less than they are given: those of this name and path
  // that follow the first `done`.
  void fail(const std::string& operation, const std::string& path, int error, unsigned done = 0,
            unsigned times = 1);
  void take_only(const std::string& path, std::size_t count);

  // What is in a file.
  [[nodiscard]] std::string contents(const std::string& path) const;

  // What it was asked to do since the last call.
  std::vector<DioOperation> take_operations();

 private:
  std::optional<KernelFolder> sys_;
  std::string record_;
  std::size_t taken_ = 0;
  StandInProcess process_;
};

}  // namespace support

#endif
