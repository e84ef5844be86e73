#include "support/board/runner.h"

#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace board {
namespace {

using rkutils::internal::UniqueFd;
using std::chrono::milliseconds;

constexpr int kSkipStatus = 77;
constexpr int kCannotStart = 127;
constexpr milliseconds kPollPeriod{10};
constexpr std::chrono::seconds kPatience{20};
constexpr std::size_t kMostOutput = std::size_t{256} * 1024;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

[[noreturn]] void execute(const Test& test, int output) {
  ::setpgid(0, 0);
  const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  std::vector<char*> words;
  words.reserve(test.command.size() + 1);
  for (const std::string& word : test.command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  if (::chdir(test.folder.c_str()) == 0) ::execvp(words[0], words.data());
  ::dprintf(STDERR_FILENO, "%s: %s\n", words[0], std::strerror(errno));
  ::_exit(kCannotStart);
}

class Running {
 public:
  explicit Running(const Test& test) : test_(&test), start_(Clock::now()) {
    std::array<int, 2> ends = {-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
    reader_.reset(ends[0]);
    const UniqueFd writer(ends[1]);
    ::fcntl(reader_.get(), F_SETFL, O_NONBLOCK);
    child_ = ::fork();
    if (child_ < 0) fail("fork");
    if (child_ == 0) execute(test, writer.get());
    ::setpgid(child_, child_);
  }

  [[nodiscard]] int descriptor() const { return reader_.get(); }
  [[nodiscard]] const std::string& name() const { return test_->name; }

  // Takes the output that is there; the test must not wait for us.
  void read_output() {
    std::array<char, 4096> buffer;
    ssize_t length = 0;
    while ((length = ::read(reader_.get(), buffer.data(), buffer.size())) > 0) {
      const std::size_t room = kMostOutput - output_.size();
      output_.append(buffer.data(), std::min(static_cast<std::size_t>(length), room));
    }
    if (length == 0) reader_.reset();
  }

  // Whether the test has ended, by itself or now at its limit.
  bool has_ended() {
    int status = 0;
    if (::waitpid(child_, &status, WNOHANG) == child_) {
      read_rest();
      judge(status);
      return true;
    }
    if (Clock::now() - start_ < test_->limit) return false;
    ::kill(-child_, SIGKILL);
    ::waitpid(child_, &status, 0);
    read_rest();
    reason_ = "still running after " + std::to_string(test_->limit.count()) + " seconds";
    return true;
  }

  [[nodiscard]] Result result() const {
    return {test_->name, outcome_, reason_, output_,
            std::chrono::duration<double>(Clock::now() - start_).count()};
  }

 private:
  void read_rest() {
    // Whoever still holds the other end was left behind by the test; it is not waited for.
    if (reader_) read_output();
    ::kill(-child_, SIGKILL);
  }

  void judge(int status) {
    if (WIFSIGNALED(status)) {
      reason_ = "signal " + std::to_string(WTERMSIG(status));
      return;
    }
    const int code = WEXITSTATUS(status);
    if (code == kSkipStatus || (code == 0 && output_.find("[  SKIPPED ]") != std::string::npos)) {
      outcome_ = Outcome::kSkipped;
    } else if (code == 0) {
      outcome_ = Outcome::kPassed;
    } else {
      reason_ = "exit status " + std::to_string(code);
    }
  }

  const Test* test_;
  Clock::time_point start_;
  UniqueFd reader_;
  pid_t child_ = -1;
  std::string output_;
  std::string reason_;
  Outcome outcome_ = Outcome::kFailed;
};

void wait_for_output(const std::vector<Running>& running) {
  std::vector<pollfd> polled;
  polled.reserve(running.size());
  for (const Running& each : running) polled.push_back({each.descriptor(), POLLIN, 0});
  ::poll(polled.data(), polled.size(), static_cast<int>(kPollPeriod.count()));
}

Test parse_line(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, '\t');) fields.push_back(field);
  char* end = nullptr;
  const long limit = fields.size() < 4 ? 0 : std::strtol(fields[1].c_str(), &end, 10);
  if (limit <= 0 || *end != '\0') throw std::runtime_error("not a test: " + line);
  return {fields[0], std::chrono::seconds(limit), fields[2], {fields.begin() + 3, fields.end()}};
}

}  // namespace

std::vector<Test> read_list(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::vector<Test> tests;
  for (std::string line; std::getline(file, line);) tests.push_back(parse_line(line));
  return tests;
}

void run_tests(const std::vector<Test>& tests, unsigned jobs, Listener& listener) {
  std::vector<Running> running;
  std::size_t next = 0;
  Clock::time_point last_news = Clock::now();
  while (next < tests.size() || !running.empty()) {
    while (running.size() < jobs && next < tests.size()) running.emplace_back(tests[next++]);
    wait_for_output(running);
    for (auto each = running.begin(); each != running.end();) {
      if (each->descriptor() >= 0) each->read_output();
      if (!each->has_ended()) {
        ++each;
        continue;
      }
      listener.ended(each->result());
      each = running.erase(each);
      last_news = Clock::now();
    }
    if (Clock::now() - last_news < kPatience) continue;
    std::vector<std::string> names;
    names.reserve(running.size());
    for (const Running& each : running) names.push_back(each.name());
    listener.waiting_for(names);
    last_news = Clock::now();
  }
}

}  // namespace board
