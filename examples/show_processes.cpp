// show-processes: prints the processes whose command lines begin with a text, and for whom.
//
//     show-processes [TEXT]
//
// For each of them a line: its id, the first argument of its parent, its own command line. It fails
// when there are none.

#include <rkutils/process_control.h>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace {

constexpr std::size_t kNameSize = 16;

void greet() {
  char caller[kNameSize];
  const bool is_known = get_caller(caller, sizeof caller) == 0;
  std::printf("%s asks\n", is_known ? caller : "somebody");
}

void print(const ProcessEntry& process) {
  const char* const parent = procname(get_parent_pid(process.getPid()));
  std::printf("%d (%s) %s\n", process.getPid(), parent, process.getName());
}

}  // namespace

int main(int argc, char** argv) {
  const char* const text = argc > 1 ? argv[1] : "";
  ProcessControl processes;
  processes.refresh(false);

  greet();
  const ProcessEntry* found = nullptr;
  while ((found = processes.getNextProcessEntryByName(text, found)) != nullptr) print(*found);
  const int count = processes.getNumberOfProcessesByName(text);
  std::printf("%d of %d\n", count, processes.getNumberOfProcessesByName(nullptr));
  return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
