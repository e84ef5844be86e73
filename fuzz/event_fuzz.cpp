// Events on their ways to who handles them.

#include <rkutils/event.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zmq.h>

#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using rkutils::internal::UniqueFd;

UniqueFd open_event_manager() {
  constexpr char kPath[] = "/tmp/status/event-manager/throw";
  std::filesystem::create_directories("/tmp/status/event-manager");
  expect(::mkfifo(kPath, 0600) == 0, "the event manager has its pipe");
  return UniqueFd(::open(kPath, O_RDWR | O_NONBLOCK | O_CLOEXEC));
}

std::string_view bytes_of(const rkevent_record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

rkevent_record make_record(std::uint32_t event, std::uint32_t parameter, const std::string& text) {
  rkevent_record record = {event, parameter, ""};
  text.copy(record.text, sizeof record.text - 1);
  return record;
}

// A source with a sink that is connected to it.
class Legacy {
 public:
  Legacy()
      : context_(zmq_ctx_new()),
        source_(create_legacy_source_with_addr(context_, kAddress)),
        sink_(register_legacy_sink_with_addr(context_, kAddress)) {
    expect(source_ != nullptr && sink_ != nullptr, "there is a source with a sink");
    const rkevent_record record = {};
    do {
      expect_equal(dispatch_legacy_event(source_, &record), 0, "the result of a first event");
    } while (receive().empty());
    while (!receive().empty()) {
    }
  }

  ~Legacy() {
    zmq_close(sink_);
    zmq_close(source_);
    zmq_ctx_term(context_);
  }

  Legacy(const Legacy&) = delete;
  Legacy& operator=(const Legacy&) = delete;

  std::string exchange(const rkevent_record& record) {
    expect_equal(dispatch_legacy_event(source_, &record), 0, "the result of dispatching");
    return receive();
  }

 private:
  static constexpr char kAddress[] = "inproc://events";

  std::string receive() {
    std::string bytes(2 * sizeof(rkevent_record), '\0');
    const int size = zmq_recv(sink_, bytes.data(), bytes.size(), ZMQ_DONTWAIT);
    bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return bytes;
  }

  void* const context_;
  void* const source_;
  void* const sink_;
};

}  // namespace

// The two numbers, and the text. Nothing of a record is lost or added.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const UniqueFd event_manager = open_event_manager();
  static Legacy legacy;
  const fuzz::NothingLeftOpen nothing_left_open;
  Input input(data, size);
  const auto event = input.number<std::uint32_t>();
  const auto parameter = input.number<std::uint32_t>();
  const std::string bytes = input.rest();
  const fuzz::Text text(bytes);
  const rkevent_record expected = make_record(event, parameter, std::string(text.view()));
  expect_equal(rkevent(event, parameter, text.c_str()), 0, "the result of an event");
  char received[2 * sizeof expected];
  const ssize_t count = ::read(event_manager.get(), received, sizeof received);
  expect(count == static_cast<ssize_t>(sizeof expected), "the event manager gets one record");
  expect_equal(std::string_view(received, sizeof expected), bytes_of(expected), "the record");
  expect_equal(std::string_view(legacy.exchange(expected)), bytes_of(expected), "a sink's record");
  return 0;
}
