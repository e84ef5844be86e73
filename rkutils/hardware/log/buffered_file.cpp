#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/hardware/log/buffered_file.h>
#include <rkutils/internal/uninterrupted.h>

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace rkutils::log {

bool BufferedFile::add(std::string_view text) noexcept {
  if (text.size() > sizeof buffer_ - used_ && !flush()) return false;
  if (text.size() > sizeof buffer_) return file::write_all(file_.get(), text.data(), text.size());
  std::memcpy(buffer_ + used_, text.data(), text.size());
  used_ += text.size();
  return true;
}

bool BufferedFile::flush() noexcept {
  const std::size_t size = used_;
  used_ = 0;
  return file::write_all(file_.get(), buffer_, size);
}

bool BufferedFile::commit() noexcept {
  return flush() && internal::uninterrupted([this] { return ::fsync(file_.get()); }) == 0;
}

bool BufferedFile::close() noexcept {
  // Linux has closed a file whose closing is interrupted, and the medium has it.
  return ::close(file_.release()) == 0 || errno == EINTR;
}

}  // namespace rkutils::log
