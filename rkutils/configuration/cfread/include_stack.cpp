#include <rkutils/configuration/cfread/include_stack.h>
#include <rkutils/configuration/cfread/line.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/memory.h>

#include <new>
#include <utility>

namespace rkutils::cfread {

using internal::UniqueFd;

OpenFile::OpenFile(UniqueFd file, const char* its_path) noexcept
    : lines(std::move(file), kPieceLength) {
  strlcpy(path, its_path, sizeof path);
}

IncludeStack::~IncludeStack() { close_all(); }

bool IncludeStack::push(const char* path) noexcept {
  UniqueFd descriptor = file::open_to_read(path);
  if (!descriptor) return false;
  std::unique_ptr<OpenFile> file(new (std::nothrow) OpenFile(std::move(descriptor), path));
  if (file == nullptr) return false;
  file->including = std::move(top_);
  top_ = std::move(file);
  return true;
}

void IncludeStack::pop() noexcept { top_ = std::move(top_->including); }

void IncludeStack::close_all() noexcept {
  while (top_ != nullptr) pop();
}

}  // namespace rkutils::cfread
