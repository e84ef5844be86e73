// The table of bridges that brctl prints, beside another reader of it.

#include <rkutils/network/interface/bridge_table.h>

#include <cstdint>
#include <string>
#include <vector>

#include "network/simple_bridge_table.h"
#include "target.h"

// The room for the result, the bridge's name, and the lines.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t room = 1 + input.below(256);
  const fuzz::Text bridge(input.until('\n'));
  std::vector<char> out(room, '#');
  rkutils::network::BridgeMembers members(bridge.c_str(), out.data(), room);
  std::vector<std::string> lines;
  while (!input.empty()) {
    const std::string bytes = input.until('\n');
    // A reader of lines ends them with their line feed, but the last.
    fuzz::Text line(bytes + (input.empty() ? "" : "\n"));
    lines.emplace_back(line.view().substr(0, line.view().find('\n')));
    members.take_line(line.data());
  }
  const std::string expected =
      simple_bridge_table::simple_members(lines, bridge.c_str()).substr(0, room - 1);
  fuzz::expect_equal(std::string(out.data()), expected, "the members");
  fuzz::expect_equal(members.length(), static_cast<int>(expected.size()), "their length");
  return 0;
}
