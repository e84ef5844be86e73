// Status files, and FIFOs read by libevent.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/status_interface.h>

#include <cstddef>
#include <string>

#include <event2/event.h>
#include <fcntl.h>
#include <unistd.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

// The header does not say by itself that these are C functions.
extern "C" {
#include <event2/event_compat.h>
}

namespace faults {
namespace {

using rkutils::internal::UniqueFd;

class CountingObserver : public StatusFifoObserver {
 public:
  void onStatusFifoRead(bufferevent* /*handle*/, const char* /*data*/, std::size_t count) override {
    bytes += count;
  }

  std::size_t bytes = 0;
};

// What libevent has to say of a failure it would print.
void say_nothing(int /*severity*/, const char* /*message*/) {}

struct EventBase {
  EventBase() : base(event_init()) { event_set_log_callback(say_nothing); }
  ~EventBase() { event_base_free(base); }
  EventBase(const EventBase&) = delete;
  EventBase& operator=(const EventBase&) = delete;

  event_base* const base;
};

// An interface on "/tmp/status/app".
struct Status {
  Status() {
    status.setup(BASEPATH_STATUS, "/app");
    support::put("/tmp/status/app/item", "old");
  }

  [[nodiscard]] std::string after() const { return folder.contents(); }

  const Folder folder{"/tmp/status"};
  const EventBase events;
  StatusInterface status;
  CountingObserver observer;
  unsigned long handle = 0;
  const String app{"/app"};
  const String deeper{"/app/deeper"};
  const String item{"/item"};
  const String fifo{"/fifo"};
  const String old_value{"before"};
  String value{old_value};
};

template <typename Prepare, typename Act>
Scenario of_status(const std::string& name, Prepare prepare, Act act) {
  return in(Process::kOwn, scenario<Status>("StatusInterface::" + name, prepare, act));
}

// What is there, and whether what arrives on the FIFO is delivered.
std::string delivery(Status& it) {
  if (it.handle == 0) return it.after();
  const UniqueFd sender(::open("/tmp/status/app/fifo", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  static_cast<void>(!::write(sender.get(), "text", 4));
  event_base_loop(it.events.base, EVLOOP_NONBLOCK);
  return it.after() + (it.observer.bytes == 4 ? "; delivers" : "; delivers nothing");
}

void make_fifo(Status& it) { it.handle = it.status.setupIpcRxFifo(it.fifo, &it.observer); }

}  // namespace

Scenarios status() {
  return {
      of_status("cleanup", make_fifo,
                [](Status& it) {
                  it.status.cleanup();
                  return Word{"done"};
                }),
      of_status("deleteIpcRxFifo", make_fifo,
                [](Status& it) {
                  it.status.deleteIpcRxFifo(it.handle);
                  return Word{"done"};
                }),
      in(Process::kOwn, scenario<Status>(
                            "StatusInterface::getStatus", kPrepared,
                            [](Status& it) { return it.status.getStatus(it.item, it.value); },
                            [](Status& it) { return text_of(it.value.c_str()); })),
      of_status("setLink", kPrepared,
                [](Status& it) { return it.status.setLink(it.item, it.old_value); }),
      of_status("setStatus", kPrepared,
                [](Status& it) { return it.status.setStatus(it.item, it.value); }),
      of_status("setup", kPrepared,
                [](Status& it) { return it.status.setup(BASEPATH_STATUS, it.deeper); }),
      in(Process::kOwn, scenario<Status>(
                            "StatusInterface::setupIpcRxFifo", kPrepared,
                            [](Status& it) {
                              it.handle = it.status.setupIpcRxFifo(it.fifo, &it.observer);
                              return Word{it.handle != 0 ? "a handle" : "0"};
                            },
                            delivery)),
  };
}

}  // namespace faults
