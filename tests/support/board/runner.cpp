#include "support/board/runner.h"

#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
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

// GoogleTest's words, before the name of the test that they are about.
constexpr std::string_view kBegun = "[ RUN      ] ";
constexpr std::string_view kOk = "[       OK ] ";
constexpr std::string_view kNotOk = "[  FAILED  ] ";
constexpr std::string_view kNotDone = "[  SKIPPED ] ";
constexpr std::string_view kFilter = "--gtest_filter=";

bool is_filter(const std::string& word) { return word.compare(0, kFilter.size(), kFilter) == 0; }

// The test's name in its GoogleTest program, or nothing.
std::string_view name_in_program(const Test& test) {
  const auto word = std::find_if(test.command.begin(), test.command.end(), is_filter);
  return word == test.command.end() ? "" : std::string_view(*word).substr(kFilter.size());
}

// Whether one process can run both.
bool fit_together(const Test& one, const Test& other) {
  const auto same = [](const std::string& a, const std::string& b) {
    return a == b || (is_filter(a) && is_filter(b));
  };
  return !name_in_program(one).empty() && one.folder == other.folder &&
         std::equal(one.command.begin(), one.command.end(), other.command.begin(),
                    other.command.end(), same);
}

using Tests = std::deque<const Test*>;

std::vector<std::string> command_for(const Tests& tests) {
  std::vector<std::string> command = tests.front()->command;
  for (std::string& word : command) {
    if (!is_filter(word)) continue;
    for (auto next = tests.begin() + 1; next != tests.end(); ++next) {
      word.append(":").append(name_in_program(**next));
    }
  }
  return command;
}

// Whether a line says this about the test. What a test prints may stand before it.
bool says(std::string_view line, std::string_view what, std::string_view name) {
  const std::size_t found = line.find(what);
  if (found == std::string_view::npos) return false;
  const std::string_view about = line.substr(found + what.size());
  return about.substr(0, name.size()) == name &&
         std::string_view(" ,\n").find(about.substr(name.size(), 1)) != std::string_view::npos;
}

[[noreturn]] void execute(const Tests& tests, int output) {
  ::setpgid(0, 0);
  const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  std::vector<std::string> command = command_for(tests);
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  if (::chdir(tests.front()->folder.c_str()) == 0) ::execvp(words[0], words.data());
  ::dprintf(STDERR_FILENO, "%s: %s\n", words[0], std::strerror(errno));
  ::_exit(kCannotStart);
}

// A process with the tests that it runs.
class Running {
 public:
  Running(Tests tests, Listener& listener)
      : waiting_(std::move(tests)), listener_(&listener), start_(Clock::now()) {
    std::array<int, 2> ends = {-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
    reader_.reset(ends[0]);
    const UniqueFd writer(ends[1]);
    ::fcntl(reader_.get(), F_SETFL, O_NONBLOCK);
    child_ = ::fork();
    if (child_ < 0) fail("fork");
    if (child_ == 0) execute(waiting_, writer.get());
    ::setpgid(child_, child_);
    if (name_in_program(*waiting_.front()).empty()) begin(waiting_.begin());
  }

  [[nodiscard]] int descriptor() const { return reader_.get(); }
  [[nodiscard]] const Test& current() const {
    return test_ != nullptr ? *test_ : *waiting_.front();
  }
  // Those that have not begun.
  [[nodiscard]] const Tests& waiting() const { return waiting_; }

  // Takes the output that is there; the tests must not wait for us.
  void read_output() {
    std::array<char, 4096> buffer;
    ssize_t length = 0;
    while ((length = ::read(reader_.get(), buffer.data(), buffer.size())) > 0) {
      for (const char* byte = buffer.data(); byte != buffer.data() + length; ++byte) {
        line_ += *byte;
        if (*byte == '\n') take_line();
      }
    }
    if (length == 0) reader_.reset();
  }

  // Whether the process has ended, by itself or now at a test's limit. All tests that it began have
  // ended then.
  bool has_ended() {
    int status = 0;
    if (::waitpid(child_, &status, WNOHANG) == child_) {
      finish(describe(status), WIFEXITED(status) && WEXITSTATUS(status) == kSkipStatus);
      return true;
    }
    if (Clock::now() - start_ < current().limit) return false;
    ::kill(-child_, SIGKILL);
    ::waitpid(child_, &status, 0);
    finish("still running after " + std::to_string(current().limit.count()) + " seconds", false);
    return true;
  }

 private:
  // What is wrong with the way that the process has ended.
  static std::string describe(int status) {
    if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
    const int code = WEXITSTATUS(status);
    return code == 0 ? "" : "exit status " + std::to_string(code);
  }

  void begin(const Tests::iterator& test) {
    test_ = *test;
    waiting_.erase(test);
  }

  void take_line() {
    const std::string_view line = line_;
    const auto begun = std::find_if(waiting_.begin(), waiting_.end(), [line](const Test* test) {
      return says(line, kBegun, name_in_program(*test));
    });
    if (begun != waiting_.end()) {
      if (test_ != nullptr) end_test();
      begin(begun);
    }
    if (test_ != nullptr && !name_in_program(*test_).empty()) {
      const std::string_view name = name_in_program(*test_);
      if (says(line, kOk, name)) outcome_ = Outcome::kPassed;
      if (says(line, kNotDone, name)) outcome_ = Outcome::kSkipped;
      if (says(line, kNotOk, name)) outcome_ = Outcome::kFailed;
    }
    output_.append(line.substr(0, kMostOutput - output_.size()));
    line_.clear();
  }

  // Whoever still holds the other end was left behind by a test; it is not waited for.
  void read_rest() {
    if (reader_) read_output();
    take_line();
    ::kill(-child_, SIGKILL);
  }

  // `wrong` says what is wrong with the end of the process.
  void finish(std::string wrong, bool skips) {
    read_rest();
    if (test_ == nullptr) {
      begin(waiting_.begin());
      outcome_ = skips ? Outcome::kSkipped : Outcome::kFailed;
      if (wrong.empty()) wrong = "the program did not run it";
    } else if (name_in_program(*test_).empty()) {
      outcome_ = skips ? Outcome::kSkipped : wrong.empty() ? Outcome::kPassed : Outcome::kFailed;
    } else if (!outcome_) {
      if (wrong.empty()) wrong = "its process ended";
    } else if (!wrong.empty() && !failed_) {
      outcome_ = Outcome::kFailed;
    }
    end_test(std::move(wrong));
  }

  // Without an outcome it has failed. `reason` is taken for a failure only.
  void end_test(std::string reason = {}) {
    const Clock::time_point now = Clock::now();
    const Outcome outcome = outcome_.value_or(Outcome::kFailed);
    if (outcome == Outcome::kFailed) {
      failed_ = true;
    } else {
      reason.clear();
    }
    listener_->ended({test_->name, outcome, std::move(reason), output_,
                      std::chrono::duration<double>(now - start_).count()});
    output_.clear();
    outcome_.reset();
    test_ = nullptr;
    start_ = now;
  }

  Tests waiting_;
  const Test* test_ = nullptr;  // the one that has begun
  Listener* listener_;
  Clock::time_point start_;  // of the test
  UniqueFd reader_;
  pid_t child_ = -1;
  std::string line_;
  std::string output_;  // of the test, and of what came before the first
  std::optional<Outcome> outcome_;
  bool failed_ = false;  // whether a test has
};

void wait_for_output(const std::vector<Running>& running) {
  std::vector<pollfd> polled;
  polled.reserve(running.size());
  for (const Running& each : running) polled.push_back({each.descriptor(), POLLIN, 0});
  ::poll(polled.data(), polled.size(), static_cast<int>(kPollPeriod.count()));
}

// The next tests for one process.
Tests take_together(Tests& tests, unsigned together) {
  Tests taken;
  do {
    taken.push_back(tests.front());
    tests.pop_front();
  } while (!tests.empty() && taken.size() < together &&
           fit_together(*taken.front(), *tests.front()));
  return taken;
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

void run_tests(const std::vector<Test>& tests, const Manner& manner, Listener& listener) {
  Tests queue;
  for (const Test& test : tests) queue.push_back(&test);
  std::vector<Running> running;
  Clock::time_point last_news = Clock::now();
  while (!queue.empty() || !running.empty()) {
    while (running.size() < manner.jobs && !queue.empty()) {
      running.emplace_back(take_together(queue, manner.together), listener);
    }
    wait_for_output(running);
    for (auto each = running.begin(); each != running.end();) {
      const Test* const before = &each->current();
      if (each->descriptor() >= 0) each->read_output();
      const bool ended = each->has_ended();
      if (ended || &each->current() != before) last_news = Clock::now();
      if (ended) queue.insert(queue.begin(), each->waiting().begin(), each->waiting().end());
      each = ended ? running.erase(each) : each + 1;
    }
    if (Clock::now() - last_news < kPatience) continue;
    std::vector<std::string> names;
    names.reserve(running.size());
    for (const Running& each : running) names.push_back(each.current().name);
    listener.waiting_for(names);
    last_news = Clock::now();
  }
}

}  // namespace board
