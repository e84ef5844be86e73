#include "observation.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/open_descriptors.h"

namespace faults {
namespace {

using support::CallArguments;
using support::FailingCall;
using Result = std::optional<std::int64_t>;

// ---- What is left behind ----

using Traces = std::set<std::string>;

dev_t device_of(const std::filesystem::path& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

// But not what is mounted in the folder: the source and the build tree may be there.
void add_files(const std::string& folder, Traces& traces) {
  std::error_code error;
  const dev_t device = device_of(folder);
  std::filesystem::recursive_directory_iterator entries(folder, error);
  for (const auto end = std::filesystem::end(entries); entries != end; ++entries) {
    traces.insert("file " + entries->path().string());
    if (entries->is_directory(error) && device_of(entries->path()) != device) {
      entries.disable_recursion_pending();
    }
  }
}

// Each object's key and number.
void add_objects(const std::string& kind, Traces& traces) {
  std::ifstream list("/proc/sysvipc/" + kind);
  for (std::string line; std::getline(list, line);) {
    std::istringstream words(line);
    std::string key;
    std::string number;
    words >> key >> number;
    std::string object = kind;
    object.append(" ").append(key).append(" ").append(number);
    traces.insert(std::move(object));
  }
}

// All that outlives a call, and should not.
Traces traces() {
  Traces found;
  for (const auto& [number, what] : support::open_descriptors()) {
    found.insert("descriptor " + std::to_string(number) + " of " + what);
  }
  for (const char* const folder :
       {"/tmp", "/var", "/run", "/nvstatus", "/dev/shm", "/dev/mqueue"}) {
    add_files(folder, found);
  }
  for (const char* const kind : {"msg", "sem", "shm"}) add_objects(kind, found);
  return found;
}

std::string difference(const Traces& before, const Traces& after) {
  std::string text;
  for (const std::string& trace : after) {
    if (before.count(trace) == 0) text += trace + "\n";
  }
  for (const std::string& trace : before) {
    if (after.count(trace) == 0) text += "no longer there: " + trace + "\n";
  }
  return text;
}

// ---- Going through a scenario ----

// More than any outcome, so that keeping one allocates nothing.
constexpr std::size_t kOutcomeRoom = 65536;

// From preparation to clearing up, on this thread. `acting` is called with the run and has it act.
// Gives how many blocks of memory are left.
template <typename Acting>
long go_through(const Scenario& scenario, std::string& outcome, Acting acting) {
  const long before = support::unfreed_count();
  try {
    const std::unique_ptr<Run> run = scenario.begin();
    acting(*run);
    outcome.assign(run->outcome());
  } catch (const std::exception& failure) {
    outcome.assign("an exception: ").append(failure.what());
  }
  return support::unfreed_count() - before;
}

void note_blocks(long blocks, Observation& seen) {
  if (blocks != 0) seen.left_behind += std::to_string(blocks) + " blocks of memory\n";
}

// Whether the call is about the log, which is not what is tested.
bool is_for_log(SystemCall call, const CallArguments& arguments) {
  if (call != SystemCall::kSend) return false;
  sockaddr_un address = {};
  socklen_t length = sizeof address;
  return ::getpeername(static_cast<int>(arguments[0]),
                       static_cast<sockaddr*>(static_cast<void*>(&address)), &length) == 0 &&
         std::strncmp(address.sun_path, "/dev/log", sizeof address.sun_path) == 0;
}

// The calls that the action itself makes; not its children, and not what comes before and after.
FailingCall watched(SystemCall call, const std::atomic<bool>& acting,
                    std::function<Result(const CallArguments&)> decide) {
  FailingCall failing = {call, 0};
  failing.of_children = false;
  failing.decide = [call, &acting, decide = std::move(decide)](const CallArguments& arguments) {
    return acting && !is_for_log(call, arguments) ? decide(arguments) : Result();
  };
  return failing;
}

// The sanitizer makes calls of its own where it meets a class for the first time.
__attribute__((no_sanitize("undefined"))) void act(Run& run, std::atomic<bool>& acting) {
  acting = true;
  run.act();
  acting = false;
}

// ---- In a process of its own ----

std::string packed(const Observation& seen) {
  std::string text = seen.outcome + '\0' + seen.left_behind + '\0' + (seen.failed ? "1" : "0");
  for (const unsigned count : seen.calls) text += ' ' + std::to_string(count);
  return text;
}

Observation unpacked(const std::string& text) {
  Observation seen;
  const std::size_t first = text.find('\0');
  const std::size_t second = text.find('\0', first + 1);
  seen.outcome = text.substr(0, first);
  seen.left_behind = text.substr(first + 1, second - first - 1);
  std::istringstream numbers(text.substr(second + 1));
  numbers >> seen.failed;
  for (unsigned& count : seen.calls) numbers >> count;
  return seen;
}

Observation of_ended_process(int status) {
  Observation seen;
  seen.failed = true;
  if (WIFEXITED(status)) {
    seen.outcome = "exits with " + std::to_string(WEXITSTATUS(status));
  } else if (WTERMSIG(status) == SIGABRT) {
    seen.outcome = "aborts";
  } else {
    seen.outcome = "ends by signal " + std::to_string(WTERMSIG(status));
  }
  return seen;
}

template <typename Way>
Observation with_traces(Way way) {
  Observation seen;
  seen.outcome.reserve(kOutcomeRoom);
  const Traces before = traces();
  way(seen);
  seen.left_behind += difference(before, traces());
  return seen;
}

template <typename Way>
Observation in_process_of_its_own(const Scenario& scenario, Way way) {
  const support::ChildEnd end = support::end_of_child([&] { return packed(with_traces(way)); });
  if (end.status == 0) return unpacked(end.result);
  // A run that was ended has not cleared up; another does.
  scenario.begin();
  return of_ended_process(end.status);
}

}  // namespace

template <typename Way>
Observation Observer::observe(Way way) {
  Observation seen = scenario_.process == Process::kShared ? with_traces(way)
                                                           : in_process_of_its_own(scenario_, way);
  for (const support::LogLine& line : log_.take()) {
    if (line.level > scenario_.log_level) continue;
    std::ostringstream text;
    text << line;
    seen.outcome += "; " + text.str();
  }
  return seen;
}

void Observer::warm_up() {
  if (scenario_.process == Process::kFresh) {
    static_cast<void>(scenario_.begin()->outcome());  // a sanitizer's first look at the class
    return;
  }
  std::string outcome;
  go_through(scenario_, outcome, [](Run& run) { run.act(); });
  log_.take();
}

Observation Observer::with_nothing_failing() {
  return observe([this](Observation& seen) {
    std::atomic<bool> acting = false;
    std::vector<FailingCall> calls;
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
      calls.push_back(watched(kKinds[kind].call, acting, [&seen, kind](const CallArguments&) {
        ++seen.calls[kind];
        return Result();
      }));
    }
    long blocks = 0;
    support::run_with_failing_calls(calls, [&] {
      blocks = go_through(scenario_, seen.outcome, [&](Run& run) { act(run, acting); });
    });
    note_blocks(blocks, seen);
  });
}

Observation Observer::with(const CallFault& fault) {
  return observe([this, fault](Observation& seen) {
    std::atomic<bool> acting = false;
    unsigned count = 0;
    const SystemCall call = kKinds[fault.kind].call;
    const FailingCall failing = watched(call, acting, [&](const CallArguments& arguments) {
      ++count;
      if (fault.nth != 0 && count != fault.nth) return Result();
      seen.failed = true;
      // A descriptor is closed also where close(2) fails.
      if (call == SystemCall::kClose) ::close(static_cast<int>(arguments[0]));
      return Result(-fault.error);
    });
    long blocks = 0;
    support::run_with_failing_calls({failing}, [&] {
      blocks = go_through(scenario_, seen.outcome, [&](Run& run) { act(run, acting); });
    });
    // The children that the action could not wait for. They have ended by now.
    while (call == SystemCall::kWait && ::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    note_blocks(blocks, seen);
  });
}

Observation Observer::with_failing_allocation(unsigned long nth) {
  return observe([this, nth](Observation& seen) {
    const long blocks = go_through(scenario_, seen.outcome, [&](Run& run) {
      const support::FailingAllocation failing(nth);
      run.act();
      seen.failed = failing.happened();
    });
    note_blocks(blocks, seen);
  });
}

}  // namespace faults
