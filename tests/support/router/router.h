// A router of its own for one command: namespaces with the router's file tree in them.
#ifndef TESTS_SUPPORT_ROUTER_ROUTER_H
#define TESTS_SUPPORT_ROUTER_ROUTER_H

#include <string>
#include <vector>

namespace router {

struct Options {
  std::vector<std::string> overlays;  // trees laid over the root's /usr, the first on top
  std::vector<std::string> keeps;     // folders of the host that stay visible where they are
  std::vector<std::string> command;
};

// Exit status of a router that the kernel or the system's settings refuse; ctest counts it as
// skipped.
inline constexpr int kRefused = 77;
// Exit status of a router that failed for any other reason.
inline constexpr int kFailed = 125;

// Runs the command to its end in new mount, pid, network, ipc and uts namespaces, and in a new user
// namespace when the caller is not root. Returns the command's exit status, 128 + N where signal N
// ended it, or one of the above.
int run(const Options& options);

}  // namespace router

#endif
