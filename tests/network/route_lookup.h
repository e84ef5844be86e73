// Asking for routes.
#ifndef TESTS_NETWORK_ROUTE_LOOKUP_H
#define TESTS_NETWORK_ROUTE_LOOKUP_H

#include <rkutils/route.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

namespace route_lookup {

// An address in a record that ends with it, `offset` bytes from where memory is aligned.
class Target {
 public:
  explicit Target(const std::string& text, std::size_t offset = 0) {
    info_.ai_family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
    const bool is_ipv4 = info_.ai_family == AF_INET;
    const std::size_t place =
        is_ipv4 ? offsetof(sockaddr_in, sin_addr) : offsetof(sockaddr_in6, sin6_addr);
    const std::size_t size = is_ipv4 ? sizeof(in_addr) : sizeof(in6_addr);
    // Another family, for the one beside the record is what counts; and whatever may be in the rest.
    record_ = std::make_unique<std::vector<unsigned char>>(offset + place + size, 0xEE);
    ::inet_pton(info_.ai_family, text.c_str(), record_->data() + offset + place);
    info_.ai_addr = reinterpret_cast<sockaddr*>(record_->data() + offset);
  }

  [[nodiscard]] const addrinfo* get() const { return &info_; }
  [[nodiscard]] addrinfo& info() { return info_; }

 private:
  addrinfo info_ = {};
  std::unique_ptr<std::vector<unsigned char>> record_;
};

struct Outcome {
  int result;
  std::string interface;
  int error;  // errno

  friend bool operator==(const Outcome& a, const Outcome& b) {
    return a.result == b.result && a.interface == b.interface;
  }
  friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.result << " \"" << outcome.interface << '"';
  }
};

// What is in the caller's buffer before, and stays there when nothing is written.
inline const std::string kUntouched(IF_NAMESIZE, 'x');

inline Outcome look_up(const addrinfo* address) {
  std::vector<char> interface(kUntouched.begin(), kUntouched.end());
  errno = ENOTTY;
  const int result = route_get_interface(address, interface.data());
  const int error = errno;
  std::string name(interface.begin(), interface.end());
  if (const std::size_t end = name.find('\0'); end != std::string::npos) name.resize(end);
  return {result, name, error};
}

inline Outcome look_up(const std::string& address) { return look_up(Target(address).get()); }

inline Outcome found(const std::string& interface) { return {0, interface, 0}; }
inline Outcome not_found() { return {-1, kUntouched, 0}; }

}  // namespace route_lookup

#endif
