#include <rkutils/configuration/cfread/include_stack.h>
#include <rkutils/configuration/cfread/line.h>
#include <rkutils/configuration/cfread/parser.h>
#include <rkutils/configuration/cfread/table.h>
#include <rkutils/memory.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include <libgen.h>
#include <syslog.h>

namespace rkutils::cfread {
namespace {

// A path made of a directory and a name is one byte shorter at most than one that is used as given.
constexpr std::size_t kJoinedPathSize = kPathSize - 1;

// Whether a name ends in the piece of a line that it lies in. One that reaches the end of a full
// piece may go on in the next.
bool is_whole(const char* name, const char* piece) {
  return name + std::strlen(name) != piece + kPieceLength;
}

// How reading goes on.
enum class Next { kLine, kIncludingFile, kFailure };

class Parser {
 public:
  explicit Parser(cfread_table& table) noexcept : table_(table) {}

  bool parse(const char* path);

 private:
  bool open(const char* path, bool whole);
  bool open_include(const char* name, bool whole);
  void close();
  void close_all();
  Next take_line(char* text);
  Next take_entry(const Line& line);
  Next fail(const char* problem);

  cfread_table& table_;
  IncludeStack files_;
};

bool Parser::parse(const char* path) {
  if (path == nullptr || *path == '\0') {
    ::syslog(LOG_ERR, "cfread: no config file given");
    return false;
  }
  if (!open(path, std::strlen(path) < kPathSize)) return false;
  while (OpenFile* const file = files_.top()) {
    char* const text = file->lines.next();
    const Next next = text != nullptr ? take_line(text) : Next::kIncludingFile;
    if (next == Next::kFailure) return false;
    if (next == Next::kIncludingFile) close();
  }
  return true;
}

// The path must not lie in an open file's memory. One that is not whole is not opened.
bool Parser::open(const char* path, bool whole) {
  if (!whole || !files_.push(path)) {
    close_all();
    ::syslog(LOG_ERR, "cfread: unable to open %s", path);
    return false;
  }
  table_.filename = files_.top()->path;
  return true;
}

bool Parser::open_include(const char* name, bool whole) {
  char including[kPathSize];
  strlcpy(including, files_.top()->path, sizeof including);
  if (*name == '\0') {
    close_all();
    ::syslog(LOG_ERR, "cfread: no include file given in %s", including);
    return false;
  }
  char path[kPathSize + kPieceLength];
  if (*name == '/') {
    strlcpy(path, name, sizeof path);
    return open(path, whole && std::strlen(path) < kPathSize);
  }
  std::snprintf(path, sizeof path, "%s/%s", ::dirname(including), name);
  return open(path, whole && std::strlen(path) < kJoinedPathSize);
}

void Parser::close() {
  files_.pop();
  table_.filename = files_.top() != nullptr ? files_.top()->path : nullptr;
}

// Before a failure is logged. A chain of includes may have taken the process's last descriptor, and
// syslog() needs one where the program has not logged anything yet.
void Parser::close_all() {
  files_.close_all();
  table_.filename = nullptr;
}

Next Parser::take_line(char* text) {
  const Line line = parse_line(text);
  Next next = Next::kLine;
  switch (line.kind) {
    case LineKind::kInclude:
      // Programs and people know the numbers of lines as counted without these.
      return open_include(line.value, is_whole(line.value, text)) ? Next::kLine : Next::kFailure;
    case LineKind::kComment:
      break;
    case LineKind::kEntry:
      next = take_entry(line);
      break;
    case LineKind::kUnterminated:
      return fail("non-terminated entry");
    case LineKind::kKeyTooLong:
      return fail("max. key length exceeded");
    case LineKind::kValueTooLong:
      return fail("max. value length exceeded");
  }
  if (next == Next::kLine) ++files_.top()->line_number;
  return next;
}

Next Parser::take_entry(const Line& line) {
  const bool complete = *line.key != '\0' && *line.value != '\0';
  if (table_.callback == nullptr) {
    UniqueEntry lost;  // nobody knows it yet who could free it
    if (complete && set_entry(table_, line.key, line.value, lost) == nullptr) {
      return fail("unable to add entry");
    }
    return Next::kLine;
  }
  if (!complete && !table_.report_empty) return Next::kLine;
  return table_.callback(line.key, line.value, table_.userdata) == 0 ? Next::kLine
                                                                     : Next::kIncludingFile;
}

Next Parser::fail(const char* problem) {
  const auto line_number = static_cast<int>(files_.top()->line_number);
  char path[kPathSize];
  strlcpy(path, files_.top()->path, sizeof path);
  close_all();
  ::syslog(LOG_ERR, "cfread: %s in %s at line %d", problem, path, line_number);
  return Next::kFailure;
}

}  // namespace

bool parse(cfread_table& table, const char* path) { return Parser(table).parse(path); }

}  // namespace rkutils::cfread
