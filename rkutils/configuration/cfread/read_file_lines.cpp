#include <rkutils/cfread.h>
#include <rkutils/configuration/cfread/line.h>
#include <rkutils/configuration/cfread/text_copy.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/memory.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <syslog.h>

namespace {

using rkutils::file::LineSource;
using rkutils::internal::ErrnoRestorer;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

constexpr int kOpenFailed = -1;
constexpr int kNoMemory = -10;

// With the text before the first line feed or carriage return.
file_line* make_line(const char* piece) {
  auto* const line = static_cast<file_line*>(zalloc(sizeof(file_line)));
  if (line == nullptr) return nullptr;
  line->text = rkutils::cfread::copy_text(piece, std::strcspn(piece, "\r\n"));
  if (line->text != nullptr) return line;
  const ErrnoRestorer cause;  // for the message
  std::free(line);
  return nullptr;
}

}  // namespace

int read_file_lines(const char* path, list_node* list) {
  if (path == nullptr || list == nullptr) return kOpenFailed;
  const PostponedCancellation postponed;
  UniqueFd file = rkutils::file::open_to_read(path);
  if (!file) return kOpenFailed;
  LineSource lines(std::move(file), rkutils::cfread::kPieceLength);
  int count = 0;
  while (const char* const piece = lines.next()) {
    ++count;
    file_line* const line = make_line(piece);
    if (line == nullptr) {
      ::syslog(LOG_ERR, "Zalloc failed, errno: %s", std::strerror(errno));
      return kNoMemory;
    }
    list_add_tail(&line->links, list);
  }
  return count;
}
