// The table of bridges and their interfaces that "brctl show" prints.
#ifndef RKUTILS_NETWORK_INTERFACE_BRIDGE_TABLE_H
#define RKUTILS_NETWORK_INTERFACE_BRIDGE_TABLE_H

#include <cstddef>

namespace rkutils::network {

// Collects the interfaces of one bridge from the table's lines:
//
//     bridge name<tab>bridge id<tab><tab>STP enabled<tab>interfaces
//     br0<tab><tab>8000.0242ac110002<tab>no<tab><tab>eth0
//     <tab><tab><tab><tab><tab><tab><tab>eth1
//
// Once the bridge has been found, lines that begin with white space count as its own to the end of
// the table, those of bridges after it too.
class BridgeMembers {
 public:
  // Writes "eth0 eth1 " to `out` of `size` bytes, 1 at least; it is cut there.
  BridgeMembers(const char* bridge, char* out, std::size_t size) noexcept;

  // Takes the next line. It may end with a line feed, and is changed.
  void take_line(char* line) noexcept;

  // The number of characters written.
  [[nodiscard]] int length() const noexcept { return static_cast<int>(length_); }

 private:
  void append(char* member) noexcept;
  void write(const char* text) noexcept;

  const char* const bridge_;
  char* const out_;
  const std::size_t room_;  // without the NUL
  std::size_t length_ = 0;
  bool found_ = false;
};

}  // namespace rkutils::network

#endif
