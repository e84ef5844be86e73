#include "support/put_file.h"

#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace support {
namespace {

using rkutils::internal::UniqueFd;

[[noreturn]] void fail(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), "write " + path);
}

UniqueFd open_file(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
  return UniqueFd(::open(path.c_str(), kFlags, 0666));
}

}  // namespace

void put(const std::string& path, const std::string& text) {
  UniqueFd file = open_file(path);
  if (!file && errno == ENOENT) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    file = open_file(path);
  }
  if (!file) fail(path);
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t length = ::write(file.get(), text.data() + done, text.size() - done);
    if (length < 0) fail(path);
    done += static_cast<std::size_t>(length);
  }
}

}  // namespace support
