// The stand-in for the configuration daemon.
#ifndef TESTS_SUPPORT_CONFIGD_DAEMON_H
#define TESTS_SUPPORT_CONFIGD_DAEMON_H

#include <rkutils/internal/unique_fd.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/configd/faults.h"
#include "support/configd/values.h"
#include "support/stand_in/control.h"
#include "support/stand_in/record.h"

namespace stand_in {

struct Options {
  std::string values = "/var/lib/configd/values";
  RecordOptions record;  // where every datagram is written to
  int control = -1;      // socket on which commands come
};

// Serves requests on the daemon's socket and commands on the control socket until the latter
// closes.
class Daemon {
 public:
  explicit Daemon(const Options& options);

  void run();

 private:
  void open_socket();
  void close_socket();
  void serve_request();
  void obey(const std::string& verb, const std::string& rest);
  // The right reply to a request, none for one that is not well-formed.
  std::optional<std::string> answer(std::string_view request);
  std::optional<std::string> assign(std::string_view text);
  void record(std::string_view direction, std::string_view peer, std::string_view bytes);

  Values values_;
  Faults faults_;
  Record record_;
  Control control_;
  rkutils::internal::UniqueFd socket_;
  std::vector<char> buffer_;
};

}  // namespace stand_in

#endif
