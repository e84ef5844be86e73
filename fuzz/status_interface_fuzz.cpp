// Status items, and messages that arrive on a FIFO.

#include <rkutils/status_interface.h>
#include <rkutils/string.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <event2/event.h>
#include <event2/event_compat.h>
#include <fcntl.h>
#include <unistd.h>

#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using rkutils::internal::UniqueFd;

constexpr std::size_t kPieceLength = 99;
constexpr char kFolder[] = "/tmp/status/fuzz";

// What getStatus() makes of a file: what follows a NUL in its piece is left out.
std::string value_in(std::string_view contents) {
  std::string value;
  for (; !contents.empty(); contents.remove_prefix(std::min(kPieceLength, contents.size()))) {
    value += fuzz::text_of(contents.substr(0, kPieceLength));
  }
  return value;
}

class Observer : public StatusFifoObserver {
 public:
  void onStatusFifoRead(struct bufferevent* /*handle*/, const char* data,
                        std::size_t count) override {
    expect(count >= 1 && count <= kPieceLength, "a piece has 1 to 99 bytes");
    expect(data[count] == '\0', "there is a NUL behind a piece");
    received.append(data, count);
  }

  std::string received;
};

void check_item(StatusInterface& status, const std::string& contents) {
  String value = "as it was";
  expect(status.getStatus("/item", value), "an item can be read");
  const std::string expected = value_in(contents);
  expect_equal(std::string(value.c_str(), static_cast<std::size_t>(value.length())), expected,
               "the value of an item");
  expect(status.setStatus("/copy", value), "an item can be written");
  std::ifstream copy(std::string(kFolder) + "/copy", std::ios::binary);
  expect_equal(std::string(std::istreambuf_iterator<char>(copy), {}), expected,
               "the contents of an item");
}

void run_event_loop() { expect(::event_loop(EVLOOP_NONBLOCK) >= 0, "libevent's loop works"); }

// Each message is a line, and read before the next.
void check_fifo(StatusInterface& status, Input& input) {
  constexpr std::size_t kMostAtOnce = 4096;
  Observer observer;
  const unsigned long handle = status.setupIpcRxFifo("/fifo", &observer);
  expect(handle != 0, "there is a FIFO");
  const UniqueFd fifo(
      ::open((std::string(kFolder) + "/fifo").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  expect(static_cast<bool>(fifo), "it can be opened for writing");
  std::string sent;
  while (!input.empty()) {
    const std::string message = input.until('\n').substr(0, kMostAtOnce);
    expect(
        ::write(fifo.get(), message.data(), message.size()) == static_cast<ssize_t>(message.size()),
        "it takes a message");
    sent += message;
    run_event_loop();
  }
  expect_equal(observer.received, sent, "what has arrived");
  status.deleteIpcRxFifo(handle);
  run_event_loop();  // in which libevent frees its part
}

}  // namespace

// An item's file, and behind a file separator, 0x1c, messages.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static event_base* const base = ::event_init();
  expect(base != nullptr, "there is an event base");
  StatusInterface status;
  expect(status.setup(BASEPATH_STATUS, "/fuzz"), "there is a folder");
  static fuzz::InputFile item(std::string(kFolder) + "/item");
  Input input(data, size);
  const std::string contents = input.until('\x1c');
  item.put(contents);
  const fuzz::NothingLeftOpen nothing_left_open;
  check_item(status, contents);
  check_fifo(status, input);
  return 0;
}
