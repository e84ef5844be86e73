#include "dwlog_fixture.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/standard_output.h"

namespace {

constexpr int kProject = 69;

// Whether the text has such characters there: '0' for a digit.
bool has_form(const std::string& text, std::size_t position, const std::string& form) {
  if (position + form.size() > text.size()) return false;
  for (std::size_t i = 0; i < form.size(); ++i) {
    const char character = text[position + i];
    const bool fits = form[i] == '0' ? std::isdigit(static_cast<unsigned char>(character)) != 0
                                     : character == form[i];
    if (!fits) return false;
  }
  return true;
}

}  // namespace

std::string contents_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string without_times(const std::string& text) {
  const std::string form = ": 0000-00-00 00:00 ";
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    if (has_form(text, i, form)) {
      result += ": TIME ";
      i += form.size();
    } else {
      result += text[i++];
    }
  }
  return result;
}

std::string log_text() { return without_times(contents_of(kLog)); }

mode_t mode_of(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

bool exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

std::string old_entries(int first, int last) {
  std::string text;
  for (int i = first; i >= last; --i) text += "1: 1999-12-31 23:59 " + std::to_string(i) + "\n";
  return text;
}

int log_set() { return ::semget(::ftok(kKeyFile, kProject), 0, 0); }

int log_value() { return ::semctl(log_set(), 0, GETVAL); }

void remove_log_set() { ::semctl(log_set(), 0, IPC_RMID); }

void PrintTo(const Result& result, std::ostream* stream) {
  *stream << result.value << ", \"" << result.messages << '"';
}

Result result_of(const std::function<int()>& call) {
  int value = 12345;
  std::string messages = support::standard_error_of([&] { value = call(); });
  return {value, std::move(messages)};
}

Result result_though(const std::vector<support::FailingCall>& calls,
                     const std::function<int()>& call) {
  return result_of([&] {
    int value = 12345;
    support::run_with_failing_calls(calls, [&] { value = call(); });
    return value;
  });
}

std::string message(const std::string& what, int error) {
  return what + ": " + std::strerror(error) + "\n";
}

Result failure(const std::string& what, int error) { return {-1, message(what, error)}; }

DwlogTest::DwlogTest() : descriptors_before_(support::open_descriptors()) {
  if (!exists(kKeyFile)) support::put(kKeyFile, "");
  std::filesystem::remove_all(kFolder);
  std::filesystem::create_directory(kFolder);
  remove_log_set();
}

DwlogTest::~DwlogTest() {
  std::filesystem::remove_all(kFolder);
  remove_log_set();
}

void DwlogTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  EXPECT_FALSE(exists(kTemporary));
}
