// rawping(): which way a packet takes.

#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/network/host_address.h>
#include <rkutils/network/ping/address_text.h>
#include <rkutils/network/ping/arp_table.h>
#include <rkutils/network/ping/frame_ping.h>
#include <rkutils/network/ping/interface.h>
#include <rkutils/network/ping/ip_ping.h>
#include <rkutils/network/ping/limits.h>
#include <rkutils/ping.h>

#include <ctime>

#include <syslog.h>

namespace rkutils::ping {
namespace {

bool check_arguments(const char* interface, const char* target, const char* source,
                     const char* netmask) noexcept {
  const auto is_given = [](const char* text, const char* what) {
    if (text != nullptr && *text != '\0') return true;
    ::syslog(LOG_ERR, "rawping: no %s given", what);
    return false;
  };
  if (!is_given(interface, "interface") || !is_given(target, "target")) return false;
  if (source == nullptr && netmask == nullptr) return true;
  return is_given(source, "source") && is_given(netmask, "netmask");
}

std::uint16_t make_identifier() noexcept {
  constexpr long kNanosecondsPerMicrosecond = 1000;
  std::timespec now = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint16_t>(
      static_cast<std::uint32_t>(now.tv_sec) *
      static_cast<std::uint32_t>(now.tv_nsec / kNanosecondsPerMicrosecond));
}

// Finds the gateway's hardware address in the kernel's table.
bool find_gateway(Context& context) noexcept {
  const auto found = find_in_arp_table(context.gateway_name);
  if (!found) return false;
  context.peer_mac = *found;
  ::syslog(LOG_DEBUG, "rawping[%s]: discovered %s for %s", context.interface,
           text_of(*found).c_str(), context.gateway_name);
  return true;
}

// The same; if it is not there a ping makes the kernel ask for it.
bool find_next_hop(Context& context) noexcept {
  if (find_gateway(context)) return true;
  const char* const interface = context.interface;
  const char* const gateway = context.gateway_name;
  ::syslog(LOG_DEBUG, "rawping[%s]: can't resolve HW address for %s -> send query", interface,
           gateway);
  const auto address = network::find_ipv4_address(gateway);
  if (!address) {
    ::syslog(LOG_DEBUG, "rawping[%s]: hostbyname for %s failed", interface, gateway);
    return false;
  }
  ::syslog(LOG_DEBUG, "rawping[%s]: pinging %s", interface, gateway);
  static_cast<void>(ping_with_ip_packet(context, {gateway, *address}));
  if (find_gateway(context)) return true;
  ::syslog(LOG_ERR, "rawping[%s]: can't resolve HW address for %s", interface, gateway);
  return false;
}

void log_route(const Context& context, const char* gateway, int is_point_to_point) noexcept {
  ::syslog(LOG_DEBUG, "gateway %s (source %08X, mask %08X, dest %08X, is_ptp %d)", gateway,
           context.source, context.netmask, context.target.address, is_point_to_point);
}

bool is_outside(const Context& context) noexcept {
  return ((context.target.address ^ context.source) & context.netmask) != 0;
}

// Pings the target the way that it must go.
bool ping_target(Context& context, const std::uint32_t* mark) noexcept {
  const char* const interface = context.interface;
  const char* const gateway = context.gateway_name;
  const Host& target = context.target;
  if (gateway == nullptr) {
    log_route(context, "none", 0);
    return ping_with_ip_packet(context, target);
  }
  const int point_to_point = is_point_to_point(interface);
  log_route(context, gateway, point_to_point);
  if (point_to_point != 0 || *gateway == '\0' || !is_outside(context)) {
    ::syslog(LOG_DEBUG, "rawping[%s] => sending ip ping to %s", interface, target.name);
    return ping_with_ip_packet(context, target);
  }
  ::syslog(LOG_DEBUG, "rawping[%s]: cannot ping %s directly, must use gateway %s", interface,
           target.name, gateway);
  if (!find_next_hop(context)) {
    ::syslog(LOG_DEBUG, "rawping[%s] => ARP lookup failed, sending ip ping to %s", interface,
             target.name);
    return ping_with_ip_packet(context, target);
  }
  ::syslog(LOG_DEBUG, "rawping[%s] => sending raw ping to %s", interface, target.name);
  return ping_with_frame(context, mark);
}

}  // namespace
}  // namespace rkutils::ping

int rawping(const char* interface, const char* target, const char* gateway, unsigned timeout_ms) {
  return __rawping(interface, target, gateway, nullptr, nullptr, timeout_ms, -1, nullptr, nullptr);
}

int __rawping(const char* interface, const char* target, const char* gateway, const char* source,
              const char* netmask, unsigned timeout_ms, int size, time_difference* round_trip,
              const uint32_t* mark) {
  using namespace rkutils::ping;
  const rkutils::internal::PostponedCancellation postponed;
  if (!check_arguments(interface, target, source, netmask)) return -1;
  const std::uint16_t identifier = make_identifier();
  const auto address = rkutils::network::find_ipv4_address(target);
  if (!address) {
    ::syslog(LOG_ERR, "rawping[%s]: invalid target '%s'", interface, target);
    return -1;
  }
  Context context = {};
  context.interface = interface;
  context.target = {target, *address};
  context.gateway_name = gateway;
  context.timeout_ms = timeout_within(timeout_ms);
  context.size = size_within(size);
  context.identifier = identifier;
  if (!look_at_interface(context, source, netmask)) return -1;

  const bool answered = ping_target(context, mark);
  if (round_trip != nullptr) *round_trip = diffts(&context.sent_at, &context.received_at);
  return answered ? 0 : -1;
}
