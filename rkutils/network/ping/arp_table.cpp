#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/ping/arp_table.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <net/if_arp.h>

namespace rkutils::ping {
namespace {

constexpr char kTable[] = "/proc/net/arp";
constexpr std::size_t kLineLength = 255;

std::optional<MacAddress> read_mac_address(const char* text) noexcept {
  unsigned parts[6];
  if (std::sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &parts[0], &parts[1], &parts[2], &parts[3],
                  &parts[4], &parts[5]) != 6) {
    return std::nullopt;
  }
  MacAddress address;
  for (std::size_t i = 0; i < address.size(); ++i) address[i] = static_cast<std::uint8_t>(parts[i]);
  return address;
}

}  // namespace

std::optional<MacAddress> read_arp_line(const char* line, const char* address) noexcept {
  const std::size_t length = std::strlen(address);
  if (std::strncmp(line, address, length) != 0 || line[length] != ' ') return std::nullopt;

  char protocol_address[kLineLength + 1];
  char hardware_type[kLineLength + 1];
  char flags[kLineLength + 1];
  char hardware_address[kLineLength + 1];
  if (std::sscanf(line, "%255s %255s %255s %255s", protocol_address, hardware_type, flags,
                  hardware_address) != 4) {
    return std::nullopt;
  }
  if ((std::strtoul(flags, nullptr, 0) & ATF_COM) == 0) return std::nullopt;
  return read_mac_address(hardware_address);
}

std::optional<MacAddress> find_in_arp_table(const char* address) noexcept {
  internal::UniqueFd table = file::open_to_read(kTable);
  if (!table) return std::nullopt;
  file::LineSource lines(std::move(table), kLineLength);
  while (const char* const line = lines.next()) {
    if (const auto found = read_arp_line(line, address)) return found;
  }
  return std::nullopt;
}

}  // namespace rkutils::ping
