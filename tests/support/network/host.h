// Hosts beside the router: network namespaces with interfaces, addresses and tables of their own.
#ifndef TESTS_SUPPORT_NETWORK_HOST_H
#define TESTS_SUPPORT_NETWORK_HOST_H

#include <rkutils/internal/unique_fd.h>

#include <string>
#include <utility>
#include <vector>

namespace support {

// A line of /proc/net/arp.
struct ArpEntry {
  std::string address;
  std::string hardware_type;  // "0x1": Ethernet
  std::string flags;          // "0x0" incomplete, "0x2" complete, "0x6" permanent
  std::string hardware_address;
  std::string mask;
  std::string device;
};

// Exists as long as the object, or anything that was opened in it. For a private router only.
class Host {
 public:
  // A new one, with its loopback alone, which is up. Its interfaces send nothing by themselves but
  // what joins multicast groups.
  Host();

  // The one that this thread is in: the router, mostly. Its loopback is up.
  static Host here();

  // Calls `action` on this thread, which is in the host meanwhile: for what it opens, asks and
  // runs. Returns what that returns. Only /proc/net follows the main thread alone; others find
  // theirs in /proc/thread-self/net.
  //
  //     const int sent = neighbour.run([&] { return sendto(...); });
  template <typename Action>
  auto run(const Action& action) const {
    const Visit visit(*this);
    return action();
  }

  // Runs commands of ip(8) there, one a line, without the word "ip" and without options of its own
  // ("-6"):
  //
  //     neighbour.ip("route add default via 10.1.0.1\n"
  //                  "neigh del 10.1.0.1 dev eth0");
  //
  // Returns what they print. Throws std::runtime_error with what they say when one fails; those
  // behind it are not run.
  std::string ip(const std::string& commands) const;

  // Sets a parameter of the host's network, a file below /proc/sys/net: "ipv4/ip_forward".
  void set(const std::string& parameter, const std::string& value) const;

  // Whether its kernel answers echo requests, as it does to begin with. It resolves addresses
  // either way; "link set eth0 arp off" ends that.
  void answer_pings(bool answers) const;

  // What the host has learned of its neighbours, and was told.
  [[nodiscard]] std::vector<ArpEntry> arp_table() const;

  // The namespace, as ip(8) takes it for "netns". Good while the object is there.
  [[nodiscard]] std::string path() const;

 private:
  // This thread's time in a host.
  class Visit {
   public:
    explicit Visit(const Host& host);
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

   private:
    rkutils::internal::UniqueFd home_;
  };

  explicit Host(rkutils::internal::UniqueFd network) : network_(std::move(network)) {}

  rkutils::internal::UniqueFd network_;
};

}  // namespace support

#endif
