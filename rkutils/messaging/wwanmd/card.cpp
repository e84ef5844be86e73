#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/messaging/wwanmd/card.h>

#include <cstdio>

#include <syslog.h>
#include <unistd.h>

namespace rkutils::wwanmd {
namespace {

constexpr int kResetChecks = 5;
constexpr int kResetCheckIntervalUs = 1000000;

// A file in the card's status folder.
CardPath marker_path(int card, const char* name) noexcept {
  CardPath path;
  std::snprintf(path.text, sizeof path.text, "/tmp/status/wwanmd/card%d/%s", card, name);
  return path;
}

bool is_readable(const CardPath& path) noexcept { return ::access(path.text, R_OK) == 0; }

}  // namespace

bool check_card(int card) noexcept {
  if ((card >= 0 && card <= 5) || (card >= 10 && card <= 15)) return true;
  ::syslog(LOG_ERR, "invalid wwan card %d", card);
  return false;
}

CardPath server_path(int card) noexcept {
  CardPath path;
  std::snprintf(path.text, sizeof path.text, "/var/run/wwanmd%d/server", card);
  return path;
}

bool is_in_reset(int card) noexcept {
  const CardPath marker = marker_path(card, "reset");
  if (!is_readable(marker)) return false;
  for (int check = 0; check < kResetChecks; ++check) {
    const bool still = is_readable(marker);
    internal::pause_us(kResetCheckIntervalUs);
    if (!still) return false;
  }
  return true;
}

bool is_suspended(int card) noexcept { return is_readable(marker_path(card, "suspended")); }

}  // namespace rkutils::wwanmd
