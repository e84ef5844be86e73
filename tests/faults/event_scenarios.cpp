// Raising events.

#include <rkutils/event.h>

#include <filesystem>

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

// A context, whose threads are there from the beginning: they begin with the first socket.
struct Context {
  Context() : context(zmq_ctx_new()) { zmq_close(zmq_socket(context, ZMQ_PUB)); }
  ~Context() {
    for (void* const one : {first, second}) {
      if (one != nullptr) zmq_close(one);
    }
    zmq_ctx_term(context);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  static std::string after() { return {}; }

  void* const context;
  void* first = nullptr;
  void* second = nullptr;
};

constexpr const char* kInside = "inproc://faults";

}  // namespace

Scenarios events() {
  return {
      scenario<Context>(
          "dispatch_legacy_event",
          [](Context& it) { it.first = create_legacy_source_with_addr(it.context, kInside); },
          [](Context& it) {
            const rkevent_record record = {17, 1, "wwan0"};
            return with_errno(dispatch_legacy_event(it.first, &record));
          }),
      scenario<EventManager>(
          "rkevent", [](EventManager& /*it*/) { return with_errno(rkevent(17, 1, "wwan0")); }),
  };
}

}  // namespace faults
