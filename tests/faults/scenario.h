// Scenarios: calls of public functions, each in known surroundings, which the tests of injected
// faults repeat once for every fault.
#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <syslog.h>

namespace faults {

// One time that a scenario is gone through. Construction prepares what the function finds, and
// destruction clears up; nothing fails meanwhile.
class Run {
 public:
  Run() = default;
  virtual ~Run() = default;
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  // Calls the function, while calls and allocations fail. It must not make system calls or allocate
  // on its own account.
  virtual void act() = 0;

  // What came of it: the result, and after a semicolon each, what else a caller finds. Nothing
  // fails any more. Log messages are not among it, they are added by who asks.
  [[nodiscard]] virtual std::string outcome() = 0;
};

// Where the runs of a scenario take place.
enum class Process {
  kShared,  // all in the test's
  kOwn,     // each in its own, because the function ends the process where memory runs out
  kFresh,   // each in its own and without another before, because something is remembered for good
};

struct Scenario {
  // The function's name, "readfile" or "String::concat", and, where it has several scenarios, a
  // space and more words.
  std::string name;
  std::function<std::unique_ptr<Run>()> begin;
  Process process = Process::kShared;
  // Makes what is there from before the first run to behind the last, a daemon for one.
  std::function<std::shared_ptr<void>()> surroundings = {};
  // The log messages that are part of the outcome: those of this level and graver ones.
  int log_level = LOG_DEBUG;
};
using Scenarios = std::vector<Scenario>;

// ---- Results as texts ----

// A word that stands for a result: "done", "made".
struct Word {
  const char* text;
};

// For a pointer that the run keeps: "made" or "NULL".
inline Word made(const void* pointer) { return {pointer != nullptr ? "made" : "NULL"}; }

// A result with the errno that says why it is negative, where that is documented.
struct WithErrno {
  long result;
  int error;
};
inline WithErrno with_errno(long result) { return {result, errno}; }

std::string text_of(long result);
inline std::string text_of(int result) { return text_of(static_cast<long>(result)); }
inline std::string text_of(unsigned long result) { return std::to_string(result); }
std::string text_of(bool result);
std::string text_of(const char* result);  // in quotes, with "\n" for newlines; or NULL
inline std::string text_of(Word result) { return result.text; }
std::string text_of(WithErrno result);  // "-1 EACCES", "0"

// Errno values by name. Throws std::out_of_range for a name that is not known.
int error_named(const std::string& name);
std::string name_of_error(int error);

// ---- Making scenarios ----

// A scenario by a class that prepares on construction and clears up on destruction, and says with
// `std::string after()` what is left to be found besides the result, or "" for nothing.
template <typename State, typename Prepare, typename Act, typename After>
class StateRun : public Run {
 public:
  StateRun(const Prepare& prepare, const Act& act, const After& after) : act_(act), after_(after) {
    prepare(state_);
  }

  void act() override {
    try {
      result_.emplace(act_(state_));
    } catch (const std::bad_alloc&) {
      // As the functions that say so do where memory runs out; told by the missing result.
    }
  }

  std::string outcome() override {
    std::string text = result_ ? text_of(*result_) : "std::bad_alloc";
    const std::string after = after_(state_);
    if (!after.empty()) text += "; " + after;
    return text;
  }

 private:
  State state_;
  const Act act_;
  const After after_;
  std::optional<decltype(std::declval<const Act&>()(std::declval<State&>()))> result_;
};

// For scenarios that the class has prepared all for.
inline constexpr auto kPrepared = [](auto& /*state*/) {};

// `prepare` and `act` take the state; `act` gives what text_of() takes; `after` stands for the
// class's own.
template <typename State, typename Prepare, typename Act, typename After>
Scenario scenario(std::string name, Prepare prepare, Act act, After after) {
  Scenario made;
  made.name = std::move(name);
  made.begin = [=] {
    return std::make_unique<StateRun<State, Prepare, Act, After>>(prepare, act, after);
  };
  return made;
}

template <typename State, typename Prepare, typename Act>
Scenario scenario(std::string name, Prepare prepare, Act act) {
  return scenario<State>(std::move(name), prepare, act, [](State& state) { return state.after(); });
}

template <typename State, typename Act>
Scenario scenario(std::string name, Act act) {
  return scenario<State>(std::move(name), kPrepared, act);
}

// The scenario with its runs in such processes.
inline Scenario in(Process process, Scenario scenario) {
  scenario.process = process;
  return scenario;
}

// The scenario without the messages of progress, which are too many for a line of the table, or
// have numbers in them that differ each time.
inline Scenario without_progress(Scenario of) {
  of.log_level = LOG_WARNING;
  return of;
}

// For functions that need nothing and leave nothing.
struct Nothing {
  static std::string after() { return {}; }
};

}  // namespace faults

#endif
