// The product as who sells it names it.

#include <rkutils/configuration/systeminfo/lines.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/memory.h>
#include <rkutils/systeminfo.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include <unistd.h>

namespace {

constexpr char kOemFile[] = "/etc/oem/oem.conf";
constexpr char kBoardNameFile[] = "/proc/sysinfo/bd/0/prod_name";

constexpr std::size_t kOemSize = 1024;
constexpr std::size_t kProductKeySize = 31;
constexpr std::size_t kProductSize = 128;

const char* find_product_in_oem_file(const char* board_name) {
  char key[kProductKeySize];
  std::snprintf(key, sizeof key, "ProductType.DW%s", board_name);
  const char* const product = oem(key);
  return *product == '\0' ? oem("ProductType") : product;
}

}  // namespace

const char* oem(const char* key) {
  static char line[kOemSize];
  *line = '\0';
  if (key == nullptr) return line;
  const rkutils::internal::PostponedCancellation postponed;
  rkutils::internal::UniqueFd file = rkutils::file::open_to_read(kOemFile);
  if (!file) return line;
  rkutils::file::LineSource lines(std::move(file), sizeof line - 1);
  while (const char* const piece = lines.next()) {
    strlcpy(line, piece, sizeof line);
    if (*line == '\0') break;
    line[std::strcspn(line, "\n")] = '\0';
    const char* const value = rkutils::sysinfo::find_oem_value(line, key);
    if (value != nullptr) return value;
  }
  return "";
}

char* get_product(void) {
  static char product[kProductSize];
  std::memset(product, 0, sizeof product);
  const char* const board_name = readfile(kBoardNameFile);
  if (::access(kOemFile, R_OK) == 0) {
    strlcpy(product, find_product_in_oem_file(board_name), sizeof product);
  } else {
    // One character less than there is room for, as ever.
    std::snprintf(product, sizeof product - 1, "DW%s", board_name);
  }
  return product;
}
