// The interfaces of a bridge.

#include <rkutils/foundations/file/command_lines.h>
#include <rkutils/interface.h>
#include <rkutils/network/interface/bridge_table.h>

#include <cstddef>

namespace {

using rkutils::file::CommandLines;
using rkutils::network::BridgeMembers;

constexpr char kCommand[] = "/usr/sbin/brctl show 2> /dev/null";
constexpr std::size_t kLineLength = 1023;

}  // namespace

int bridge_members(const char* bridge, char* out, size_t size) {
  if (bridge == nullptr || *bridge == '\0' || out == nullptr || size == 0) return -1;
  BridgeMembers members(bridge, out, size);
  CommandLines lines(kCommand, kLineLength);
  if (!lines) return -1;
  while (char* const line = lines->next_line()) members.take_line(line);
  return members.length();
}
