#include <rkutils/event.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/memory.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

#include <fcntl.h>
#include <zmq.h>

namespace {

using rkutils::internal::ErrnoRestorer;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

// What other programs read and write.
static_assert(sizeof(rkevent_record) == 136);
static_assert(offsetof(rkevent_record, event) == 0);
static_assert(offsetof(rkevent_record, parameter) == 4);
static_assert(offsetof(rkevent_record, text) == 8);

constexpr const char* kEventManagerInput = "/tmp/status/event-manager/throw";
constexpr const char* kLegacyAddress = "tcp://127.0.0.1:47011";

// Calls again what a signal has interrupted: nothing has been done then. ZeroMQ's calls too can be
// interrupted before they begin, also those that do not wait.
template <typename Call>
auto repeat_interrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

rkevent_record make_record(unsigned event, unsigned parameter, const char* text) {
  rkevent_record record = {event, parameter, ""};
  if (text != nullptr) strlcpy(record.text, text, sizeof record.text);
  return record;
}

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};
using UniqueMemory = std::unique_ptr<void, Free>;

// How ZeroMQ frees a message's bytes.
void free_copy(void* copy, void* /*hint*/) { std::free(copy); }

struct SocketCloser {
  void operator()(void* socket) const noexcept {
    const ErrnoRestorer keep_errno;
    zmq_close(socket);
  }
};
using UniqueSocket = std::unique_ptr<void, SocketCloser>;

// What `call` returns. ZeroMQ is written in C++, and lets what its containers throw for want of
// memory out of its functions: `failed` then.
template <typename Call, typename Result>
Result call_zeromq(Call call, Result failed) noexcept {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return failed;
  }
}

// Binds or connects a socket.
using Attach = bool(void* socket, const char* address);

// Makes a socket and attaches it to its address; no socket is left when that fails.
void* open_socket(void* context, int type, const char* address, Attach* attach) noexcept {
  if (address == nullptr) {  // which ZeroMQ asserts that it is not
    errno = EINVAL;
    return nullptr;
  }
  const PostponedCancellation postponed;
  return call_zeromq(
      [&]() -> void* {
        UniqueSocket socket(zmq_socket(context, type));
        if (socket == nullptr || !attach(socket.get(), address)) return nullptr;
        return socket.release();
      },
      static_cast<void*>(nullptr));
}

}  // namespace

int rkevent(unsigned event, unsigned parameter, const char* text) {
  // Signal handlers may: it changes a word of the thread's own, and changes it back.
  const PostponedCancellation postponed;
  const rkevent_record record = make_record(event, parameter, text);
  // Open for reading too, so that opening does not wait for a reader and writing does not raise
  // SIGPIPE for want of one.
  const UniqueFd pipe = rkutils::file::open_at(AT_FDCWD, kEventManagerInput, O_RDWR);
  if (!pipe) return -1;
  // Not write_all(): the rest of a record would not be one.
  const ssize_t count = rkutils::file::write_some(pipe.get(), &record, sizeof record);
  return count == static_cast<ssize_t>(sizeof record) ? 0 : -1;
}

int dispatch_legacy_event(void* socket, const rkevent_record* record) {
  if (record == nullptr) {
    errno = EINVAL;
    return -1;
  }
  const PostponedCancellation postponed;
  UniqueMemory copy(std::malloc(sizeof *record));
  if (copy == nullptr) return -1;
  *static_cast<rkevent_record*>(copy.get()) = *record;

  zmq_msg_t message;
  if (zmq_msg_init_data(&message, copy.get(), sizeof *record, free_copy, nullptr) != 0) return -1;
  static_cast<void>(copy.release());  // now the message's
  const int sent = call_zeromq(
      [&] { return repeat_interrupted([&] { return zmq_msg_send(&message, socket, 0); }); }, -1);
  if (sent == static_cast<int>(sizeof *record)) return 0;
  const ErrnoRestorer keep_errno;
  zmq_msg_close(&message);
  return -1;
}

void* create_legacy_source_with_addr(void* context, const char* address) {
  return open_socket(context, ZMQ_PUB, address, [](void* socket, const char* where) {
    return repeat_interrupted([&] { return zmq_bind(socket, where); }) == 0;
  });
}

void* create_legacy_source(void* context) {
  return create_legacy_source_with_addr(context, kLegacyAddress);
}

void* register_legacy_sink_with_addr(void* context, const char* address) {
  return open_socket(context, ZMQ_SUB, address, [](void* socket, const char* where) {
    return zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0) == 0 &&
           repeat_interrupted([&] { return zmq_connect(socket, where); }) == 0;
  });
}

void* register_legacy_sink(void* context) {
  return register_legacy_sink_with_addr(context, kLegacyAddress);
}
