#include "support/private_router.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace support {
namespace {

std::string link_text(const char* path) {
  char text[4096];
  const ssize_t length = ::readlink(path, text, sizeof text);
  return std::string(text, length > 0 ? static_cast<std::size_t>(length) : 0);
}

std::vector<std::string> words_of(const std::string& text, char separator) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, separator);) {
    if (!word.empty()) words.push_back(word);
  }
  return words;
}

}  // namespace

bool inside_private_router() {
  std::ifstream marker("/run/private-router");
  std::string mount_namespace;
  std::getline(marker, mount_namespace);
  return !mount_namespace.empty() && mount_namespace == link_text("/proc/self/ns/mnt");
}

void enter_private_router(char** argv) {
  if (inside_private_router()) return;
  std::vector<std::string> words = {built_program("tests/support/private-router")};
  for (const std::string& overlay : words_of(RKUTILS_OVERLAYS, ':')) {
    words.insert(words.end(), {"--overlay", overlay});
  }
  words.insert(words.end(), {"--keep", built_program(""), "--keep", source_file(""), "--"});
  const char* const checker = std::getenv("RKUTILS_RUN_UNDER");
  for (std::string& word : words_of(checker == nullptr ? "" : checker, ' ')) {
    words.push_back(std::move(word));
  }
  words.push_back(link_text("/proc/self/exe"));
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
