// Single processes.

#include <rkutils/process_control.h>
#include <rkutils/processes/table/process_file.h>
#include <rkutils/processes/table/process_text.h>

#include <cstddef>

#include <unistd.h>

using rkutils::processes::kCommandLine;
using rkutils::processes::kStatus;
using rkutils::processes::parent_in;
using rkutils::processes::ProcessPath;
using rkutils::processes::read_process_file;

int pid_alive(int pid) { return ::access(ProcessPath(pid).get(), R_OK) == 0 ? 1 : 0; }

int get_parent_pid(int pid) {
  constexpr std::size_t kLineSize = 255;
  char line[kLineSize];
  if (!read_process_file(pid, kStatus, line, sizeof line)) return -1;
  return parent_in(line).value_or(-1);
}

const char* procname(int pid) {
  constexpr std::size_t kNameSize = 256;
  static char name[kNameSize];
  if (!read_process_file(pid, kCommandLine, name, sizeof name)) return "";
  // Shells have no name, and what else begins like them loses two letters: deliberately kept.
  return name[0] == 's' && name[1] == 'h' ? name + 2 : name;
}
