#include "support/stand_in/record.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <system_error>

namespace stand_in {

Record::Record(const RecordOptions& options) {
  constexpr std::size_t kLongestLine = 262144;
  if (!options.file.empty()) {
    stream_.reset(std::fopen(options.file.c_str(), "ae"));
  } else if (options.socket >= 0) {
    stream_.reset(::fdopen(options.socket, "a"));
  } else {
    return;
  }
  if (!stream_) throw std::system_error(errno, std::generic_category(), "record");
  std::setvbuf(stream_.get(), nullptr, _IOFBF, kLongestLine);
}

void Record::write(const std::string& line) {
  if (!stream_) return;
  std::fwrite(line.data(), 1, line.size(), stream_.get());
  std::fputc('\n', stream_.get());
  std::fflush(stream_.get());
}

}  // namespace stand_in
