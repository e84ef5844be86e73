#include <rkutils/hardware/storage/mount_line.h>

#include <algorithm>
#include <cstddef>

namespace rkutils::storage {
namespace {

// Takes a field, and the blank that ends it, from the front of what is left of a line.
std::string_view take_field(std::string_view& line) {
  const std::size_t length = std::min(line.find_first_of(" \n"), line.size());
  const std::string_view field = line.substr(0, length);
  line.remove_prefix(std::min(length + 1, line.size()));
  return field;
}

bool is_device(std::string_view field, std::string_view partition) {
  constexpr std::string_view kFolder = "/dev/";
  return field.substr(0, kFolder.size()) == kFolder && field.substr(kFolder.size()) == partition;
}

}  // namespace

std::optional<std::string_view> mount_point_in(std::string_view line,
                                               std::string_view partition) noexcept {
  if (!is_device(take_field(line), partition)) return std::nullopt;
  return take_field(line);
}

}  // namespace rkutils::storage
