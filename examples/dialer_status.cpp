// dialer-status: publishes the state of a connection in the folder /tmp/status/dialer, and takes
// orders through a FIFO there, one a line: dial, hang-up or quit.
//
//     dialer-status &
//     echo dial > /tmp/status/dialer/order
//     cat /tmp/status/dialer/state

#include <rkutils/status_interface.h>
#include <rkutils/string.h>

#include <cstddef>
#include <cstdio>

#include <event2/event.h>
#include <event2/event_compat.h>

namespace {

class Dialer : public StatusFifoObserver {
 public:
  explicit Dialer(event_base* base) : base_(base) {}

  // False when the folder or something in it cannot be made.
  bool start() {
    return status_.setup(BASEPATH_STATUS, "/dialer") &&
           status_.setupIpcRxFifo("/order", this) != 0 && status_.setStatus("/state", "offline");
  }

  // Orders arrive in any pieces.
  void onStatusFifoRead(bufferevent* /*handle*/, const char* data, std::size_t count) override {
    text_.concat(data, static_cast<long>(count));
    for (long end = text_.indexOf('\n'); end >= 0; end = text_.indexOf('\n')) {
      const String order = text_.substring(0, end);
      text_.deleteRegion(0, end + 1);
      obey(order);
    }
  }

 private:
  void obey(String const& order) {
    std::printf("order: %s\n", order.c_str());
    if (order == "dial") {
      status_.setStatus("/state", "online");
      status_.setLink("/uplink", "/tmp/status/wwanmd/card1");
    } else if (order == "hang-up") {
      status_.setLink("/uplink", "");
      status_.setStatus("/state", "offline");
    } else if (order == "quit") {
      event_base_loopbreak(base_);
    } else {
      std::puts("that is none");
    }
  }

  event_base* const base_;
  StatusInterface status_;
  String text_;  // the beginning of an order
};

bool run(event_base* base) {
  Dialer dialer(base);
  return dialer.start() && event_base_dispatch(base) == 0;
}

}  // namespace

int main() {
  event_base* const base = event_init();
  const bool done = run(base);
  event_base_free(base);
  return done ? 0 : 1;
}
