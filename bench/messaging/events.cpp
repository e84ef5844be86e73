// Raising events: into a pipe, and over ZeroMQ from a source to a sink, beside the bare calls.

#include <rkutils/event.h>
#include <rkutils/internal/unique_fd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zmq.h>

#include "messaging/rows.h"
#include "support/comparison.h"

namespace bench::messaging {
namespace {

using benchmark::State;
using rkutils::internal::UniqueFd;

constexpr const char* kText = "wwan0 is up";

// ---- The pipe ----

constexpr const char* kPipe = "/tmp/status/event-manager/throw";

// The event manager's end, emptied before it is full.
class Manager {
 public:
  Manager() {
    std::filesystem::create_directories("/tmp/status/event-manager");
    ::mkfifo(kPipe, 0600);
    pipe_ = UniqueFd(::open(kPipe, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }

  bool take_one() {
    if (++waiting_ < 400) return true;
    waiting_ = 0;
    return ::read(pipe_.get(), bytes_.data(), bytes_.size()) > 0;
  }

 private:
  UniqueFd pipe_;
  int waiting_ = 0;
  std::vector<char> bytes_ = std::vector<char>(std::size_t{64} * 1024);
};

void raise_event(State& state) {
  Manager manager;
  for (auto _ : state) {
    if (rkevent(1, 2, kText) != 0 || !manager.take_one()) state.SkipWithError("not written");
  }
}

void open_write_close(State& state) {
  Manager manager;
  for (auto _ : state) {
    rkevent_record record = {1, 2, ""};
    std::strncpy(record.text, kText, sizeof record.text - 1);
    const int pipe = ::open(kPipe, O_RDWR | O_CLOEXEC);
    const ssize_t count = ::write(pipe, &record, sizeof record);
    ::close(pipe);
    if (count != sizeof record || !manager.take_one()) state.SkipWithError("not written");
  }
}

// ---- ZeroMQ ----

constexpr int kRecords = 100000;
// Fewer than the queues take, so that none is lost.
constexpr int kBatch = 250;

struct Close {
  void operator()(void* socket) const { zmq_close(socket); }
};
struct Terminate {
  void operator()(void* context) const { zmq_ctx_term(context); }
};
using Context = std::unique_ptr<void, Terminate>;
using Socket = std::unique_ptr<void, Close>;

bool receive(void* sink) {
  rkevent_record record;
  return zmq_recv(sink, &record, sizeof record, 0) == sizeof record;
}

// Until the sink hears the source, and has received all that this took.
bool connect(void* source, void* sink) {
  int patience = 10;
  zmq_setsockopt(sink, ZMQ_RCVTIMEO, &patience, sizeof patience);
  for (int tries = 0; tries < 500; ++tries) {
    zmq_send(source, "probe", 5, 0);
    char probe[5];
    if (zmq_recv(sink, probe, sizeof probe, 0) != 5) continue;
    while (zmq_recv(sink, probe, sizeof probe, 0) == 5) {
    }
    patience = 5000;
    zmq_setsockopt(sink, ZMQ_RCVTIMEO, &patience, sizeof patience);
    return true;
  }
  return false;
}

// Sends a batch and receives it. Asking for the source's events lets it know at once what the sink
// has taken, which it otherwise learns when it has time.
template <typename Send>
bool exchange_batch(void* source, void* sink, Send send) {
  const rkevent_record record = {1, 2, "wwan0 is up"};
  for (int i = 0; i < kBatch; ++i) {
    if (!send(record)) return false;
  }
  for (int i = 0; i < kBatch; ++i) {
    if (!receive(sink)) return false;
  }
  int events = 0;
  std::size_t size = sizeof events;
  return zmq_getsockopt(source, ZMQ_EVENTS, &events, &size) == 0;
}

template <typename Send>
void exchange_all(State& state, void* source, void* sink, Send send) {
  bool done = connect(source, sink);
  for (auto _ : state) {
    for (int count = 0; done && count < kRecords; count += kBatch) {
      done = exchange_batch(source, sink, send);
    }
    if (!done) state.SkipWithError("a record was lost");
  }
}

void dispatch_100000(State& state) {
  const Context context(zmq_ctx_new());
  const Socket source(create_legacy_source(context.get()));
  const Socket sink(register_legacy_sink(context.get()));
  exchange_all(state, source.get(), sink.get(), [&](const rkevent_record& record) {
    return dispatch_legacy_event(source.get(), &record) == 0;
  });
}

void send_100000(State& state) {
  const Context context(zmq_ctx_new());
  const Socket source(zmq_socket(context.get(), ZMQ_PUB));
  const Socket sink(zmq_socket(context.get(), ZMQ_SUB));
  zmq_bind(source.get(), "tcp://127.0.0.1:47011");
  zmq_setsockopt(sink.get(), ZMQ_SUBSCRIBE, "", 0);
  zmq_connect(sink.get(), "tcp://127.0.0.1:47011");
  exchange_all(state, source.get(), sink.get(), [&](const rkevent_record& record) {
    return zmq_send(source.get(), &record, sizeof record, 0) == sizeof record;
  });
}

}  // namespace

void add_event_rows() {
  compare("rkevent into a pipe", raise_event, {floor("open, write, close", 1.1, open_write_close)});
  compare("legacy event, source to sink, 100,000", dispatch_100000,
          {floor("zmq_send, zmq_recv", 1.1, send_100000)});
}

}  // namespace bench::messaging
