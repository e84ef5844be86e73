// The stand-in for the modem daemon.
#ifndef TESTS_SUPPORT_WWANMD_DAEMON_H
#define TESTS_SUPPORT_WWANMD_DAEMON_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/stand_in/control.h"
#include "support/stand_in/record.h"
#include "support/wwanmd/plan.h"

namespace stand_in {

struct ModemOptions {
  int card = -1;
  RecordOptions record;  // where everything is written to
  int control = -1;      // socket on which commands come
};

// Serves the applications that connect to the card's socket, and commands on the control socket
// until the latter closes.
class ModemDaemon {
 public:
  explicit ModemDaemon(const ModemOptions& options);

  void run();

 private:
  struct Client {
    int number;  // counted from 1
    rkutils::internal::UniqueFd socket;
    std::string line;  // what has come of the next command
  };

  void open_socket();
  void close_socket();
  void accept_client();
  void serve_client(Client& client);
  void serve_line(Client& client, const std::string& line);
  void carry_out(Client& client, const Plan& plan, const std::string& answer);
  void send(const Client& client, std::string_view bytes);
  void close_client(Client& client);
  void forget_closed_clients();
  void obey(const std::string& word, const std::string& rest);
  void record(const char* event, const Client& client, std::string_view bytes);

  std::string path_;
  std::map<std::string, std::string> answers_;  // replies to commands; "OK" to all others
  Plans plans_;                                 // for the commands to come
  Plans greetings_;                             // for the connections to come
  bool deaf_ = false;
  int connections_ = 0;
  Record record_;
  Control control_;
  rkutils::internal::UniqueFd listener_;
  std::vector<Client> clients_;
  std::vector<char> buffer_;
};

}  // namespace stand_in

#endif
