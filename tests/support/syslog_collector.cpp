#include "support/syslog_collector.h"

#include <rkutils/internal/unix_address.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace support {
namespace {

using rkutils::internal::UniqueFd;

constexpr char kLogPath[] = "/dev/log";
constexpr std::array<std::string_view, 8> kLevelNames = {"emerg",   "alert",  "crit", "err",
                                                         "warning", "notice", "info", "debug"};
// More than the longest message that the library can make, a reply of the configuration daemon's.
constexpr std::size_t kLongestMessage = 65536;

#ifdef __GLIBC__
constexpr bool kEndsMessages = false;
#else
constexpr bool kEndsMessages = true;
#endif

std::string_view without_end(std::string_view text) {
  if (kEndsMessages && !text.empty() && text.back() == '\n') text.remove_suffix(1);
  return text;
}

// What the C library keeps of it for certain.
std::string_view kept_of(std::string_view text) {
  constexpr std::size_t kSurelyKept = 900;
  return kEndsMessages ? without_end(text).substr(0, kSurelyKept) : text;
}

}  // namespace

bool operator==(const LogLine& a, const LogLine& b) {
  return a.level == b.level && kept_of(a.text) == kept_of(b.text);
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << level_name(line.level) << " \"" << line.text << '"';
}

std::string_view level_name(int level) {
  return level >= 0 && static_cast<std::size_t>(level) < kLevelNames.size()
             ? kLevelNames[static_cast<std::size_t>(level)]
             : "?";
}

LogLine parse_log_line(std::string_view message) {
  constexpr std::size_t kTimeStampLength = sizeof "Nov 21 09:00:00 " - 1;
  LogLine line = {-1, std::string(message)};
  const std::size_t bracket = message.find('>');
  if (message.empty() || message.front() != '<' || bracket == std::string_view::npos) return line;
  const int priority = std::atoi(line.text.c_str() + 1);
  line.level = LOG_PRI(priority);
  line.facility = priority & LOG_FACMASK;
  message.remove_prefix(bracket + 1);
  message.remove_prefix(std::min(kTimeStampLength, message.size()));
  const std::size_t colon = message.find(": ");
  if (colon != std::string_view::npos) {
    line.program = std::string(message.substr(0, std::min(message.find('['), colon)));
    message.remove_prefix(colon + 2);
  }
  line.text = std::string(without_end(message));
  return line;
}

UniqueFd open_log_socket() {
  ::unlink(kLogPath);
  UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address;
  if (!socket || !rkutils::internal::make_unix_address(kLogPath, address) ||
      ::bind(socket.get(), rkutils::internal::as_sockaddr(address), sizeof address) != 0 ||
      ::chmod(kLogPath, 0666) != 0) {
    throw std::system_error(errno, std::generic_category(), kLogPath);
  }
  return socket;
}

SyslogCollector::SyslogCollector()
    : socket_(open_log_socket()),
      stop_(::eventfd(0, EFD_CLOEXEC)),
      buffer_(kLongestMessage),
      receiver_([this] { keep_receiving(); }) {
  // This process may be connected to an earlier collector still; and the log's descriptor is opened
  // now, not in the middle of a test that counts descriptors.
  ::closelog();
  ::openlog(nullptr, LOG_NDELAY, LOG_USER);
}

SyslogCollector::~SyslogCollector() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(stop_.get(), &one, sizeof one));
  receiver_.join();
  ::unlink(kLogPath);
}

std::vector<LogLine> SyslogCollector::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  receive_pending();
  return std::exchange(lines_, {});
}

void SyslogCollector::keep_receiving() {
  for (;;) {
    std::array<pollfd, 2> entries = {{{socket_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
    if (::poll(entries.data(), entries.size(), -1) < 0) continue;
    if (entries[1].revents != 0) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    receive_pending();
  }
}

void SyslogCollector::receive_pending() {
  for (;;) {
    const ssize_t length = ::recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (length < 0) return;
    lines_.push_back(parse_log_line({buffer_.data(), static_cast<std::size_t>(length)}));
  }
}

}  // namespace support
