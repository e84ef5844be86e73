// private-router: runs a command in a router of its own.
//
//   private-router [--overlay TREE]... [--keep FOLDER]... [--] COMMAND [ARGUMENT]...
//
//   --overlay TREE   lay TREE/usr over the router's /usr, as an installed package; LD_LIBRARY_PATH
//   is
//                    set to /usr/lib then, so that programs of a build tree load what is installed
//   --keep FOLDER    show this folder of the host, which a fresh /tmp or /var would hide
//
// The exit status is the command's, 128 + N where signal N ended it (a reboot in the router is
// signal 1, a power-off signal 2), 77 where the system does not allow such a router, 125 where it
// fails.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/router/router.h"

namespace {

int usage() {
  std::fputs("usage: private-router [--overlay TREE]... [--keep FOLDER]... [--] COMMAND...\n",
             stderr);
  return router::kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  router::Options options;
  int next = 1;
  for (; next < argc && std::strncmp(argv[next], "--", 2) == 0; next += 2) {
    if (std::strcmp(argv[next], "--") == 0) {
      ++next;
      break;
    }
    if (next + 1 >= argc) return usage();
    if (std::strcmp(argv[next], "--overlay") == 0) {
      options.overlays.emplace_back(argv[next + 1]);
    } else if (std::strcmp(argv[next], "--keep") == 0) {
      options.keeps.emplace_back(argv[next + 1]);
    } else {
      return usage();
    }
  }
  for (; next < argc; ++next) options.command.emplace_back(argv[next]);
  if (options.command.empty()) return usage();
  // Without exit handlers: our pid namespace has ended and takes no new process, but a leak checker
  // would start one.
  std::_Exit(router::run(options));
}
