// Netlink messages as bytes, field by field (netlink(7), rtnetlink(7)).
#ifndef TESTS_NETWORK_NETLINK_BYTES_H
#define TESTS_NETWORK_NETLINK_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace netlink_bytes {

inline constexpr unsigned kError = 2;
inline constexpr unsigned kDone = 3;
inline constexpr unsigned kNewRoute = 24;
inline constexpr unsigned kOutputInterface = 4;  // an attribute
inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::size_t kRouteSize = 28;  // without attributes

// A number in the machine's own order.
template <typename Number>
std::string number(Number value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

inline std::string u16(unsigned value) { return number(static_cast<std::uint16_t>(value)); }
inline std::string u32(std::size_t value) { return number(static_cast<std::uint32_t>(value)); }

template <typename Number>
Number number_at(const std::string& bytes, std::size_t offset) {
  Number value = 0;
  std::memcpy(&value, bytes.substr(offset).data(), sizeof value);
  return value;
}

inline std::string zeros(std::size_t count) { return std::string(count, '\0'); }

// With what aligns the next one.
inline std::string padded(const std::string& bytes) {
  return bytes + zeros((4 - bytes.size() % 4) % 4);
}

// Who an answer is for.
struct Asker {
  std::uint32_t port;
  std::uint32_t sequence;
};

// A message whose length is said to be `length`.
inline std::string message_of_length(std::size_t length, unsigned type, const Asker& asker,
                                     const std::string& body) {
  return u32(length) + u16(type) + u16(0) + u32(asker.sequence) + u32(asker.port) + body;
}

inline std::string message(unsigned type, const Asker& asker, const std::string& body = {}) {
  return message_of_length(kHeaderSize + body.size(), type, asker, body);
}

inline std::string attribute_of_length(unsigned length, unsigned type, const std::string& payload) {
  return u16(length) + u16(type) + payload;
}

inline std::string attribute(unsigned type, const std::string& payload) {
  return padded(attribute_of_length(static_cast<unsigned>(4 + payload.size()), type, payload));
}

inline std::string output_interface(unsigned index) {
  return attribute(kOutputInterface, u32(index));
}

// A route that has these attributes.
inline std::string route(const Asker& asker, const std::string& attributes) {
  return message(kNewRoute, asker, zeros(kRouteSize - kHeaderSize) + attributes);
}

// An error, or with code 0 an acknowledgement, of a request whose header it repeats.
inline std::string error(const Asker& asker, int code) {
  return message(kError, asker, number(code) + zeros(kHeaderSize));
}

}  // namespace netlink_bytes

#endif
