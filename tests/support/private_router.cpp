#include "support/private_router.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

namespace support {
namespace {

std::string working_folder() {
  char path[4096];
  return ::getcwd(path, sizeof path) != nullptr ? path : "/";
}

std::string this_program() {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  return std::string(path, length > 0 ? static_cast<std::size_t>(length) : 0);
}

}  // namespace

bool inside_private_router() { return ::access("/run/private-router", F_OK) == 0; }

void enter_private_router(char** argv) {
  if (inside_private_router()) return;
  std::vector<std::string> words = {built_program("tests/support/private-router"),
                                    "--overlay",
                                    built_program("stage"),
                                    "--keep",
                                    built_program(""),
                                    "--keep",
                                    source_file(""),
                                    "--keep",
                                    working_folder(),
                                    "--",
                                    this_program()};
  for (++argv; *argv != nullptr; ++argv) words.emplace_back(*argv);

  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  ::execv(arguments[0], arguments.data());
  std::perror(arguments[0]);
  std::exit(EXIT_FAILURE);
}

std::string built_program(const std::string& path) {
  return path.empty() ? RKUTILS_BUILD_DIR : RKUTILS_BUILD_DIR "/" + path;
}

std::string source_file(const std::string& path) {
  return path.empty() ? RKUTILS_SOURCE_DIR : RKUTILS_SOURCE_DIR "/" + path;
}

}  // namespace support
