#include "support/router/router.h"

#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/network/interface_flags.h"
#include "support/router/mounts.h"

namespace router {
namespace {

using rkutils::internal::UniqueFd;

// Seen by tests to know where they are.
constexpr char kMarker[] = "/run/private-router";

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

// What a kernel or a container runtime answers that does not let us have namespaces or mounts. The
// rest is a mistake of ours and must not pass as "not possible here".
bool is_refusal(int error) {
  static const std::set<int> kRefusals = {EACCES, ENODEV, ENOSPC, ENOSYS, EPERM};
  return kRefusals.count(error) != 0;
}

int report(const std::system_error& error) {
  const bool refused = is_refusal(error.code().value());
  std::fprintf(stderr, "private router: %s: %s\n", refused ? "refused here" : "failed",
               error.what());
  return refused ? kRefused : kFailed;
}

std::string link_text(const char* path) {
  char text[256];
  const ssize_t length = ::readlink(path, text, sizeof text);
  if (length < 0) fail(path);
  return std::string(text, static_cast<std::size_t>(length));
}

void write_text(const std::string& path, const std::string& text) {
  const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  if (!file || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    fail("write " + path);
  }
}

void unshare_namespaces() {
  const uid_t uid = ::geteuid();
  const gid_t gid = ::getegid();
  int namespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;
  if (uid != 0) namespaces |= CLONE_NEWUSER;
  if (::unshare(namespaces) != 0) {
    // Here these say that the kernel lacks a namespace, or that they are nested too deep.
    if (errno == EINVAL || errno == EUSERS) errno = ENOSYS;
    fail("unshare");
  }
  if (uid != 0) {
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    write_text("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
  }
}

int status_of(int wait_status) {
  constexpr int kSignalled = 128;
  return WIFSIGNALED(wait_status) ? kSignalled + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

[[noreturn]] void execute(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  ::execvp(arguments[0], arguments.data());
  std::fprintf(stderr, "private router: %s: %s\n", arguments[0], std::strerror(errno));
  std::_Exit(kFailed);
}

// The library at its installed place comes before the build tree's, which a test's RUNPATH names.
void prepend_library_path(const std::string& folder) {
  const char* const others = std::getenv("LD_LIBRARY_PATH");
  const std::string path = others == nullptr ? folder : folder + ":" + others;
  ::setenv("LD_LIBRARY_PATH", path.c_str(), 1);
}

// Process 1: starts the command, reaps whatever becomes its child, and ends with the command; the
// kernel then ends everything that is left.
int be_init(const Options& options) {
  // Die with the process that waits for us, so that an ended test run leaves nothing behind.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string folder = [] {
    char path[4096];
    return ::getcwd(path, sizeof path) != nullptr ? std::string(path) : std::string("/");
  }();
  enter_root(options);
  if (::chdir(folder.c_str()) != 0 && ::chdir("/") != 0) fail("chdir /");
  if (::sethostname("router", std::strlen("router")) != 0) fail("sethostname");
  support::bring_up("lo");
  // A marker that came into another namespace says nothing there.
  write_text(kMarker, link_text("/proc/self/ns/mnt"));
  if (!options.overlays.empty()) prepend_library_path("/usr/lib");

  const pid_t command = ::fork();
  if (command < 0) fail("fork");
  if (command == 0) execute(options.command);
  for (;;) {
    int status = 0;
    const pid_t ended = ::wait(&status);
    if (ended == command) return status_of(status);
    if (ended < 0 && errno != EINTR) fail("wait");
  }
}

}  // namespace

int run(const Options& options) try {
  // A caller may have left it ignored, and then no child could be waited for.
  ::signal(SIGCHLD, SIG_DFL);
  unshare_namespaces();
  const pid_t init = ::fork();
  if (init < 0) fail("fork");
  if (init == 0) {
    int status = kFailed;
    try {
      status = be_init(options);
    } catch (const std::system_error& error) {
      status = report(error);
    }
    std::_Exit(status);
  }
  int status = 0;
  while (::waitpid(init, &status, 0) < 0) {
    if (errno != EINTR) fail("waitpid");
  }
  return status_of(status);
} catch (const std::system_error& error) {
  return report(error);
}

}  // namespace router
