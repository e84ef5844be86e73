// Writes down how it finds itself, to the file that the environment names, and exits with the
// status 42:
//
//     pid 12
//     ...
//     argument command-probe       (a line for each)
//     descriptor 0 /dev/null       (likewise)
//
// The file is there as soon as it is complete.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool is_ignored(int signal) {
  struct sigaction action = {};
  ::sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

bool is_blocked(int signal) {
  sigset_t blocked;
  ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
  return ::sigismember(&blocked, signal) == 1;
}

template <typename Test>
std::string signals_that(Test test) {
  std::string numbers;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (test(signal)) numbers += " " + std::to_string(signal);
  }
  return numbers;
}

// As /proc lists them. A limit may be too high to look at each number.
std::vector<int> listed_descriptors(DIR* folder) {
  std::vector<int> descriptors;
  while (const dirent* const entry = ::readdir(folder)) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && std::stoi(name) != ::dirfd(folder)) {
      descriptors.push_back(std::stoi(name));
    }
  }
  return descriptors;
}

// Looked at one by one. A program that lowered its limit may have some above it.
std::vector<int> found_descriptors() {
  constexpr int kAlways = 1024;
  const int end = std::max(::getdtablesize(), kAlways);
  std::vector<int> descriptors;
  for (int each = 0; each < end; ++each) {
    if (::fcntl(each, F_GETFD) >= 0) descriptors.push_back(each);
  }
  return descriptors;
}

std::map<int, std::string> open_descriptors() {
  DIR* const folder = ::opendir("/proc/self/fd");
  const auto numbers = folder != nullptr ? listed_descriptors(folder) : found_descriptors();
  if (folder != nullptr) ::closedir(folder);
  std::map<int, std::string> descriptors;
  for (const int each : numbers) {
    char target[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(each);
    const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
    descriptors.emplace(each,
                        std::string(target, length < 0 ? 0 : static_cast<std::size_t>(length)));
  }
  return descriptors;
}

std::string working_folder() {
  char path[4096];
  return ::getcwd(path, sizeof path) == nullptr ? "?" : path;
}

// The terminal that controls the process, 0 for none: the fifth field behind the name.
std::string terminal() {
  std::ifstream status("/proc/self/stat");
  std::string field;
  std::getline(status, field, ')');
  for (int i = 0; i < 5; ++i) status >> field;
  return field;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kStatus = 42;
  const std::map<int, std::string> descriptors = open_descriptors();
  const char* const path = std::getenv("COMMAND_PROBE");
  if (path == nullptr) return EXIT_FAILURE;
  char mask[8];
  std::snprintf(mask, sizeof mask, "%03o", static_cast<unsigned>(::umask(0)));

  const std::string unfinished = std::string(path) + ".unfinished";
  std::ofstream report(unfinished);
  report << "pid " << ::getpid() << "\nsession " << ::getsid(0) << "\nterminal " << terminal()
         << "\nfolder " << working_folder() << "\numask " << mask << "\nblocked"
         << signals_that(is_blocked) << "\nignored" << signals_that(is_ignored) << '\n';
  for (int i = 0; i < argc; ++i) report << "argument " << argv[i] << '\n';
  for (const auto& [descriptor, target] : descriptors) {
    report << "descriptor " << descriptor << ' ' << target << '\n';
  }
  report.close();
  return report && std::rename(unfinished.c_str(), path) == 0 ? kStatus : EXIT_FAILURE;
}
