// Status values, on the private router's memory file system, beside streams and bare calls.

#include <rkutils/status_interface.h>

#include <fstream>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "messaging/rows.h"
#include "support/comparison.h"

namespace bench::messaging {
namespace {

using benchmark::State;

constexpr const char* kPath = "/tmp/status/bench/state";
constexpr std::string_view kValue = "connected";

// An interface whose item "/state" has the value, and is what the others use by its path.
class Published {
 public:
  explicit Published(State& state) : value_(kValue.data()) {
    if (!status_.setup(BASEPATH_STATUS, "/bench") || !set()) state.SkipWithError("not published");
  }

  bool set() { return status_.setStatus(item_, value_); }
  bool get(String& value) const { return status_.getStatus(item_, value); }

 private:
  const String item_ = "/state";
  const String value_;
  StatusInterface status_;
};

// ---- Setting ----

void set_status(State& state) {
  Published published(state);
  for (auto _ : state) {
    if (!published.set()) state.SkipWithError("not set");
  }
}

void set_by_stream(State& state) {
  const Published published(state);
  for (auto _ : state) {
    std::ofstream file(kPath);
    file << kValue;
    file.close();
    if (!file) state.SkipWithError("not set");
  }
}

void set_by_calls(State& state) {
  const Published published(state);
  for (auto _ : state) {
    const int file = ::open(kPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const ssize_t count = ::write(file, kValue.data(), kValue.size());
    ::close(file);
    if (count != static_cast<ssize_t>(kValue.size())) state.SkipWithError("not set");
  }
}

// ---- Reading ----

void get_status(State& state) {
  const Published published(state);
  String value;
  for (auto _ : state) {
    if (!published.get(value)) state.SkipWithError("not read");
  }
  if (value != kValue.data()) state.SkipWithError("another value");
}

void get_by_stream(State& state) {
  const Published published(state);
  std::string value;
  for (auto _ : state) {
    std::ifstream file(kPath);
    std::getline(file, value, '\0');
    if (!file) state.SkipWithError("not read");
  }
  if (value != kValue) state.SkipWithError("another value");
}

// With the read that finds the end.
void get_by_calls(State& state) {
  const Published published(state);
  char value[100] = "";
  for (auto _ : state) {
    const int file = ::open(kPath, O_RDONLY | O_CLOEXEC);
    std::size_t length = 0;
    ssize_t count = 0;
    while ((count = ::read(file, value + length, sizeof value - length)) > 0) {
      length += static_cast<std::size_t>(count);
    }
    ::close(file);
    if (length != kValue.size()) state.SkipWithError("not read");
    benchmark::DoNotOptimize(value);
  }
}

}  // namespace

void add_status_rows() {
  compare(
      "setStatus", set_status,
      {peer("std::ofstream", 0.85, set_by_stream), floor("open, write, close", 1.1, set_by_calls)});
  compare(
      "getStatus", get_status,
      {peer("std::ifstream", 0.85, get_by_stream), floor("open, read, close", 1.1, get_by_calls)});
}

}  // namespace bench::messaging
