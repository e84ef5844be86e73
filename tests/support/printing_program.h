// A program that prints what a test wants, in the place of one that is installed.
#ifndef TESTS_SUPPORT_PRINTING_PROGRAM_H
#define TESTS_SUPPORT_PRINTING_PROGRAM_H

#include <string>
#include <vector>

namespace support {

// Stands at `path` for as long as the object is there, and what was there comes back afterwards.
// One at a time for one path.
//
//     PrintingProgram brctl("/usr/sbin/brctl");
//     brctl.print("bridge name\tbridge id\t\tSTP enabled\tinterfaces\n");
class PrintingProgram {
 public:
  // Prints nothing to begin with.
  explicit PrintingProgram(const std::string& path);
  ~PrintingProgram();
  PrintingProgram(const PrintingProgram&) = delete;
  PrintingProgram& operator=(const PrintingProgram&) = delete;

  // What it prints from now on, byte for byte, to standard output.
  void print(const std::string& text) const;

  // Shell commands that it runs from now on instead.
  void run(const std::string& commands) const;

  // The command that prints what print() has set.
  [[nodiscard]] std::string print_output() const;

  // The arguments of each time that it was started, in brackets: "[show]", "[-n][26201]".
  [[nodiscard]] std::vector<std::string> starts() const;

 private:
  // What was at the path, what is printed, and the arguments.
  [[nodiscard]] std::string aside() const { return path_ + ".aside"; }
  [[nodiscard]] std::string output() const { return path_ + ".output"; }
  [[nodiscard]] std::string arguments() const { return path_ + ".arguments"; }

  const std::string path_;
};

}  // namespace support

#endif
