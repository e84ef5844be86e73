// The receiving end of syslog.
#ifndef TESTS_SUPPORT_SYSLOG_COLLECTOR_H
#define TESTS_SUPPORT_SYSLOG_COLLECTOR_H

#include <rkutils/internal/unique_fd.h>

#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

// One message: its level (LOG_ERR and so on) and its text, which are compared; and who logged it.
// Some C libraries, musl among them, end every message with a newline that has none, and cut it at
// 1024 bytes with all that stands before the text. With those a newline at the end says nothing and
// is not compared, nor is what follows the first 900 bytes.
struct LogLine {
  int level;
  std::string text;
  int facility = -1;
  std::string program = {};

  friend bool operator==(const LogLine& a, const LogLine& b);
  friend std::ostream& operator<<(std::ostream& out, const LogLine& line);
};

// Reads a message as the C library writes it to /dev/log: "<11>Nov 21 09:00:00 program[12]: text".
LogLine parse_log_line(std::string_view message);

// The name of a level as logread shows it: "err", "debug".
std::string_view level_name(int level);

// Listens on /dev/log and keeps what this process and others log. It connects this process's
// syslog() to itself. A message is there as soon as the call of syslog() that sent it has returned.
class SyslogCollector {
 public:
  SyslogCollector();
  ~SyslogCollector();
  SyslogCollector(const SyslogCollector&) = delete;
  SyslogCollector& operator=(const SyslogCollector&) = delete;

  // The messages since the last call, in the order they came.
  std::vector<LogLine> take();

 private:
  void keep_receiving();
  void receive_pending();

  rkutils::internal::UniqueFd socket_;
  rkutils::internal::UniqueFd stop_;
  std::mutex mutex_;  // guards lines_ and buffer_, and keeps the order
  std::vector<LogLine> lines_;
  std::vector<char> buffer_;
  // The kernel queues few datagrams, and a sender waits when they are not fetched.
  std::thread receiver_;
};

// A datagram socket listening on /dev/log in place of any other.
rkutils::internal::UniqueFd open_log_socket();

}  // namespace support

#endif
