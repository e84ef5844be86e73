#include <rkutils/hardware/storage/place.h>
#include <rkutils/memory.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace rkutils::storage {
namespace {

constexpr std::size_t kMaxNames = 62;

bool contains(const char* text, const char* part) { return std::strstr(text, part) != nullptr; }

}  // namespace

Bus bus_of(const char* link) noexcept {
  if (contains(link, "/mtd")) return Bus::kMtd;
  if (contains(link, "/mmc_host")) return Bus::kMmc;
  if (contains(link, "/ata1") || contains(link, "/ata2")) return Bus::kSata;
  if (contains(link, "/usb")) return Bus::kUsb;
  return Bus::kOther;
}

bool is_on_port(const char* link, const char* names) noexcept {
  char lines[kMaxNames + 1];
  strlcpy(lines, names, sizeof lines);
  std::replace(lines, lines + std::strlen(lines), ':', '.');
  char* rest = nullptr;
  for (const char* name = ::strtok_r(lines, "\n", &rest); name != nullptr;
       name = ::strtok_r(nullptr, "\n", &rest)) {
    char part[sizeof lines + 2];
    ::stpcpy(::stpcpy(::stpcpy(part, "/"), name), "/");
    if (contains(link, part)) return true;
  }
  return false;
}

}  // namespace rkutils::storage
