#include <rkutils/internal/internet_checksum.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/host_address.h>
#include <rkutils/network/ping_client_packet.h>
#include <rkutils/network/socket_calls.h>
#include <rkutils/ping_client.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace network = rkutils::network;

namespace {

using rkutils::internal::PostponedCancellation;

constexpr int kClosed = -1;

std::uint16_t draw() noexcept { return static_cast<std::uint16_t>(std::rand()); }

}  // namespace

PingClient::PingClient() : socket_(kClosed), identifier_(draw()), sequence_(draw()) {}

PingClient::~PingClient() { PingClient::cleanup(); }

int PingClient::sendSimplePing(String const& target, String const& source) {
  constexpr int kSent = 0;
  constexpr int kFailed = 1;
  const PostponedCancellation postponed;
  cleanup();
  ++sequence_;
  socket_ = network::open_icmp_socket().release();
  if (socket_ == kClosed) return kFailed;
  const int with_headers_of_ours = 1;
  if (!network::set_option(socket_, IPPROTO_IP, IP_HDRINCL, with_headers_of_ours)) return kFailed;
  const std::optional<std::uint32_t> host = network::find_ipv4_address(target.c_str());
  if (!host) return kFailed;
  const network::EchoRequest request = network::make_echo_request(
      {ntohl(::inet_addr(source.c_str())), *host}, {identifier_, sequence_});
  return network::send_to_host(socket_, request.data(), request.size(), *host) ? kSent : kFailed;
}

unsigned PingClient::checkPingResponse() {
  constexpr unsigned kReplied = 0;
  constexpr unsigned kNothing = 2;
  constexpr unsigned kFailed = 3;
  const PostponedCancellation postponed;
  for (;;) {
    std::array<std::uint8_t, 256> packet;
    const ssize_t length = ::recv(socket_, packet.data(), packet.size(), MSG_DONTWAIT);
    if (length < 0) return errno == EAGAIN ? kNothing : kFailed;
    if (network::has_numbers(packet.data(), static_cast<std::size_t>(length),
                             {identifier_, sequence_})) {
      return kReplied;
    }
  }
}

void PingClient::cleanup() {
  const PostponedCancellation postponed;
  const rkutils::internal::UniqueFd closed_here(std::exchange(socket_, kClosed));
}

int PingClient::checksum(unsigned short* data, int length) const {
  return rkutils::internal::internet_checksum(data,
                                              length < 0 ? 0 : static_cast<std::size_t>(length));
}
