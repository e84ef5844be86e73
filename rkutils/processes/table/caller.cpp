// Who has started this program.

#include <rkutils/memory.h>
#include <rkutils/process_control.h>
#include <rkutils/processes/table/process_file.h>
#include <rkutils/text.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include <unistd.h>

using rkutils::processes::kCommandName;
using rkutils::processes::read_process_file;

int get_caller(char* buffer, size_t size) {
  constexpr int kGenerations = 3;
  constexpr int kFirstParent = 2;         // below are process 1, what is outside, and failures
  constexpr std::size_t kTextSize = 128;  // the kernel's own names take half of it

  if (buffer == nullptr || size < 2) return -1;
  std::memset(buffer, 0, size);
  int process = ::getppid();
  for (int i = 0; i < kGenerations; ++i) {
    char text[kTextSize];
    if (!read_process_file(process, kCommandName, text, sizeof text)) return -1;
    const char* const name = stripwhite(text);
    if (*name != '\0' && std::strcmp(name, "sh") != 0) {
      strlcpy(buffer, name, size);
      return 0;
    }
    const int parent = get_parent_pid(process);
    if (parent < kFirstParent) {
      std::snprintf(buffer, size, "pid%d", process);
      return 0;
    }
    process = parent;
  }
  return -1;
}
