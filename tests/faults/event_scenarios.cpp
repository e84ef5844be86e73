// Raising events.

#include <rkutils/event.h>

#include <filesystem>
#include <memory>

#include <zmq.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

// With a file in the place of the event manager's pipe.
struct EventManager {
  EventManager() { support::put("/tmp/status/event-manager/throw", ""); }

  // Whether the record has come.
  [[nodiscard]] static std::string after() {
    const auto size = std::filesystem::file_size("/tmp/status/event-manager/throw");
    return std::to_string(size) + " bytes";
  }

  const Folder folder{"/tmp/status"};
};

// A source that serves all runs: making one is ZeroMQ's affair, which ends the process where most
// of its calls fail. Its tests are in legacy_event_test.cpp.
class Source {
 public:
  Source() : context_(zmq_ctx_new()) {
    current = create_legacy_source_with_addr(context_, "inproc://faults");
  }
  ~Source() {
    zmq_close(current);
    zmq_ctx_term(context_);
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  inline static void* current = nullptr;

 private:
  void* const context_;
};

Scenario with_source(Scenario scenario) {
  scenario.surroundings = [] { return std::make_shared<Source>(); };
  return scenario;
}

}  // namespace

Scenarios events() {
  return {
      with_source(scenario<Nothing>("dispatch_legacy_event",
                                    [](Nothing& /*nothing*/) {
                                      const rkevent_record record = {17, 1, "wwan0"};
                                      return with_errno(
                                          dispatch_legacy_event(Source::current, &record));
                                    })),
      scenario<EventManager>(
          "rkevent", [](EventManager& /*it*/) { return with_errno(rkevent(17, 1, "wwan0")); }),
  };
}

}  // namespace faults
