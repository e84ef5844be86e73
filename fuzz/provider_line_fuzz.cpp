// Lines of the provider database.

#include <rkutils/network/interface/provider_line.h>

#include <cstdint>
#include <string>

#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  fuzz::Text line(input.rest());
  const std::string whole(line.view());
  const char* const provider = rkutils::network::provider_in(line.data());
  const bool has_label = whole.compare(0, 9, "provider:") == 0;
  fuzz::expect_equal(provider != nullptr, has_label, "whether there is a provider");
  if (!has_label) {
    fuzz::expect(line.view() == whole, "another line is as it was");
    return 0;
  }
  std::string expected = whole.substr(9);
  while (!expected.empty() && std::string(" \t\r\n").find(expected.back()) != std::string::npos) {
    expected.pop_back();
  }
  while (!expected.empty() && std::string(" \t\r\n").find(expected.front()) != std::string::npos) {
    expected.erase(0, 1);
  }
  fuzz::expect_equal(std::string(provider), expected, "the provider");
  return 0;
}
