#include <rkutils/network/route/messages.h>

#include <algorithm>
#include <cstring>

namespace rkutils::network::route {
namespace {

constexpr std::size_t kHeaderSize = sizeof(nlmsghdr);
constexpr std::size_t kAttributeHeaderSize = sizeof(rtattr);
static_assert(kHeaderSize == 16 && kAttributeHeaderSize == 4);

// The multipath flags of an interface, as kernels know them that have multipath transport.
constexpr unsigned kNoMultipath = 0x80000;
constexpr unsigned kMultipathBackup = 0x100000;

constexpr std::size_t aligned(std::size_t size) noexcept {
  constexpr std::size_t kAlignment = 4;
  return (size + kAlignment - 1) & ~(kAlignment - 1);
}

// What others have written need not be aligned.
template <typename Record>
Record load(const Byte* bytes) noexcept {
  Record record;
  std::memcpy(&record, bytes, sizeof record);
  return record;
}

// Goes past what comes first and what aligns the next. The last one may come without that.
void skip(Bytes& bytes, std::size_t size) noexcept {
  const std::size_t step = std::min(aligned(size), bytes.size);
  bytes.data += step;
  bytes.size -= step;
}

// The payload of the first attribute of a type. Ends at an attribute whose length cannot be.
Bytes find_attribute(Bytes attributes, unsigned type) noexcept {
  while (attributes.size >= kAttributeHeaderSize) {
    const auto header = load<rtattr>(attributes.data);
    if (header.rta_len < kAttributeHeaderSize || header.rta_len > attributes.size) break;
    if (header.rta_type == type) {
      return {attributes.data + kAttributeHeaderSize, header.rta_len - kAttributeHeaderSize};
    }
    skip(attributes, header.rta_len);
  }
  return {nullptr, 0};
}

}  // namespace

bool make_route_request(int family, const Byte* address, std::size_t length,
                        RouteMessage& request) noexcept {
  constexpr std::size_t kLongest = sizeof request.attributes - kAttributeHeaderSize;
  constexpr std::size_t kBitsPerByte = 8;
  request = {};
  if (length > kLongest) return false;

  rtattr destination = {};
  destination.rta_len = static_cast<unsigned short>(kAttributeHeaderSize + length);
  destination.rta_type = RTA_DST;
  std::memcpy(request.attributes, &destination, sizeof destination);
  std::memcpy(request.attributes + sizeof destination, address, length);

  request.header.nlmsg_len =
      static_cast<std::uint32_t>(offsetof(RouteMessage, attributes) + aligned(destination.rta_len));
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.route.rtm_family = static_cast<unsigned char>(family);
  request.route.rtm_dst_len = static_cast<unsigned char>(length * kBitsPerByte);
  return true;
}

LinkRequest make_link_request(unsigned index, bool exclude, bool backup) noexcept {
  LinkRequest request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_NEWLINK;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.link.ifi_family = AF_UNSPEC;
  request.link.ifi_index = static_cast<int>(index);
  request.link.ifi_flags = (exclude ? kNoMultipath : 0) | (backup ? kMultipathBackup : 0);
  request.link.ifi_change = kNoMultipath | kMultipathBackup;
  return request;
}

Reading find_answer(const Datagram& datagram, const Question& question) noexcept {
  constexpr std::uint32_t kKernel = 0;
  Bytes left = datagram.bytes;
  while (left.size >= kHeaderSize) {
    const auto header = load<nlmsghdr>(left.data);
    if (header.nlmsg_len < kHeaderSize || header.nlmsg_len > left.size) {
      return {Reading::Kind::kMalformed, {}};
    }
    if (datagram.sender == kKernel && header.nlmsg_pid == question.port &&
        header.nlmsg_seq == question.sequence) {
      return {Reading::Kind::kAnswer, {left.data, header.nlmsg_len}};
    }
    skip(left, header.nlmsg_len);
  }
  const bool whole = left.size == 0 || datagram.truncated;
  return {whole ? Reading::Kind::kNoAnswer : Reading::Kind::kMalformed, {}};
}

unsigned type_of(Bytes message) noexcept { return load<nlmsghdr>(message.data).nlmsg_type; }

int error_of(Bytes message) noexcept {
  if (message.size < kHeaderSize + sizeof(nlmsgerr)) return 0;
  const auto negated = load<std::uint32_t>(message.data + kHeaderSize);
  return static_cast<int>(0U - negated);
}

unsigned output_interface(const RouteMessage& route) noexcept {
  const std::size_t size = std::min<std::size_t>(route.header.nlmsg_len, sizeof route) -
                           sizeof route.header - sizeof route.route;
  const Bytes index = find_attribute({route.attributes, size}, RTA_OIF);
  return index.size < sizeof(unsigned) ? 0 : load<unsigned>(index.data);
}

}  // namespace rkutils::network::route
