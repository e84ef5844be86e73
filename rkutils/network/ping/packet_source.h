// The packets that come to a socket while a reply is waited for.
#ifndef RKUTILS_NETWORK_PING_PACKET_SOURCE_H
#define RKUTILS_NETWORK_PING_PACKET_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <optional>

namespace rkutils::ping {

//     PacketSource packets(socket, timeout_ms);
//     while (const auto length = packets.next(buffer, sizeof buffer)) look_at(buffer, *length);
//     if (packets.has_failed()) …
class PacketSource {
 public:
  PacketSource(int socket, unsigned timeout_ms) noexcept;

  // Waits for a packet and gives its length; of one that is longer than `size` the rest is lost.
  // Nothing when the time is up, which is time slept, in steps; when there were kMostPackets; and
  // on failure, when errno says why.
  [[nodiscard]] std::optional<std::size_t> next(std::uint8_t* buffer, std::size_t size) noexcept;

  [[nodiscard]] bool has_failed() const noexcept { return has_failed_; }

  static constexpr int kMostPackets = 1024;

 private:
  const int socket_;
  std::int64_t left_us_;
  int packets_ = 0;
  bool has_failed_ = false;
};

}  // namespace rkutils::ping

#endif
