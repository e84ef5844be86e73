#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/network/ping/packet_source.h>

#include <cerrno>

#include <sys/socket.h>

namespace rkutils::ping {
namespace {

constexpr std::int64_t kStepUs = 300000;
constexpr std::int64_t kMicrosecondsPerMillisecond = 1000;

ssize_t receive(int socket, void* buffer, std::size_t size) noexcept {
  ssize_t received = 0;
  do {
    received = ::recv(socket, buffer, size, MSG_DONTWAIT);
  } while (received < 0 && errno == EINTR);
  return received;
}

}  // namespace

PacketSource::PacketSource(int socket, unsigned timeout_ms) noexcept
    : socket_(socket), left_us_(timeout_ms * kMicrosecondsPerMillisecond + kStepUs) {}

std::optional<std::size_t> PacketSource::next(std::uint8_t* buffer, std::size_t size) noexcept {
  while (left_us_ > 0 && packets_ < kMostPackets) {
    const ssize_t received = receive(socket_, buffer, size);
    if (received >= 0) {
      ++packets_;
      return static_cast<std::size_t>(received);
    }
    if (errno != EAGAIN) {
      has_failed_ = true;
      return std::nullopt;
    }
    internal::pause_us(kStepUs);
    left_us_ -= kStepUs;
  }
  return std::nullopt;
}

}  // namespace rkutils::ping
