#include "process_fixture.h"

#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/in_child.h"
#include "support/open_descriptors.h"
#include "support/private_router.h"

namespace {

using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

}  // namespace

Sleeper::Sleeper(std::vector<std::string> arguments) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  const std::string program = support::built_program("tests/processes/process-sleeper");

  int ends[2] = {};
  check(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
  const UniqueFd ours(ends[0]);
  UniqueFd its(ends[1]);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, its.get(), STDOUT_FILENO);
  // Not a fork, which takes long when many are started by a sanitized program.
  const int error = ::posix_spawn(&id_, program.c_str(), &actions, nullptr, words.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), program);
  its.reset();
  char byte = 1;
  if (::read(ours.get(), &byte, 1) == 1) return;
  remove();
  throw std::runtime_error(program + " does not run");
}

Sleeper::Sleeper(Sleeper&& other) noexcept : id_(std::exchange(other.id_, -1)) {}

void Sleeper::end() const {
  ::kill(id_, SIGKILL);
  siginfo_t ended = {};
  check(::waitid(P_PID, static_cast<id_t>(id_), &ended, WEXITED | WNOWAIT) == 0, "waitid");
}

void Sleeper::remove() {
  if (id_ <= 0) return;
  ::kill(id_, SIGKILL);
  while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
}

void InventedProcesses::add(const std::string& folder, const std::string& command_line) const {
  proc_.put(folder + "/cmdline", command_line);
}

void InventedProcesses::remove(int id) const {
  std::filesystem::remove_all(proc_.at(std::to_string(id)));
}

std::vector<int> listed_processes() {
  std::vector<int> ids;
  const UniqueDir processes(::opendir("/proc"));
  check(processes != nullptr, "/proc");
  while (const dirent* const entry = ::readdir(processes.get())) {
    const std::string name = entry->d_name;
    const bool is_number = std::all_of(name.begin(), name.end(),
                                       [](unsigned char byte) { return std::isdigit(byte) != 0; });
    if (entry->d_type == DT_DIR && is_number) ids.push_back(std::stoi(name));
  }
  return ids;
}

std::optional<std::string> command_line_of(int id) {
  std::ifstream file("/proc/" + std::to_string(id) + "/cmdline");
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void be_named(const std::string& name) {
  check(::prctl(PR_SET_NAME, name.c_str()) == 0, "PR_SET_NAME");
}

std::string called_below(std::vector<std::string> names,
                         const std::function<std::string()>& action) {
  if (names.empty()) return support::in_child(action);
  return support::in_child([&] {
    be_named(names.front());
    names.erase(names.begin());
    return called_below(names, action);
  });
}

ProcessTest::ProcessTest() : descriptors_before_(support::open_descriptors()) {}

void ProcessTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}
