#include <rkutils/internal/line_reader.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace rkutils::internal {

LineReader::LineReader(std::FILE* stream, char* buffer, std::size_t size) noexcept
    : stream_(stream), buffer_(buffer), size_(size) {
  buffer_[0] = '\0';
}

bool LineReader::next() noexcept {
  const int limit = static_cast<int>(std::min<std::size_t>(size_, INT_MAX));
  if (std::fgets(buffer_, limit, stream_) != nullptr) return true;
  buffer_[0] = '\0';
  return false;
}

bool LineReader::ended() const noexcept {
  const std::size_t length = std::strlen(buffer_);
  return length > 0 && buffer_[length - 1] == '\n';
}

void LineReader::chomp() noexcept {
  if (ended()) buffer_[std::strlen(buffer_) - 1] = '\0';
}

}  // namespace rkutils::internal
