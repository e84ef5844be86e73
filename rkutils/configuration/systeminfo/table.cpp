// The table of the image's variables.

#include <rkutils/configuration/systeminfo/lines.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/text/decimal.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/memory.h>
#include <rkutils/systeminfo.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace sysinfo = rkutils::sysinfo;
namespace file = rkutils::file;

using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

namespace {

constexpr char kVariablesFile[] = "/etc/default/system-info";
constexpr std::int32_t kMaxVariables = 256;
constexpr std::size_t kPieceLength = 1022;

// Owns both texts; unused ones are NULL.
struct Entry {
  char* name;
  char* value;
};

}  // namespace

// One allocation, zero-filled, so that unused entries own nothing. The layout is fixed.
struct systeminfo {
  std::int32_t count;
  Entry entries[kMaxVariables];
};
static_assert(offsetof(systeminfo, count) == 0);
static_assert(offsetof(systeminfo, entries) == sizeof(void*));
static_assert(offsetof(Entry, name) == 0 && offsetof(Entry, value) == sizeof(void*));
static_assert(sizeof(systeminfo) == (1 + 2 * kMaxVariables) * sizeof(void*));
static_assert(std::is_trivial_v<systeminfo>);

namespace {

struct TableFree {
  void operator()(systeminfo* table) const noexcept { systeminfo_free(table); }
};
using UniqueTable = std::unique_ptr<systeminfo, TableFree>;

// False when the table is full or there is no memory; what it then holds of the variable,
// systeminfo_free() frees.
bool add(systeminfo& table, const sysinfo::Variable& variable) {
  if (table.count == kMaxVariables) return false;
  Entry& entry = table.entries[table.count];
  entry.name = ::strdup(variable.name);
  entry.value = ::strdup(variable.value);
  if (entry.name == nullptr || entry.value == nullptr) return false;
  ++table.count;
  return true;
}

bool read_variables(UniqueFd opened, systeminfo& table) {
  file::LineSource lines(std::move(opened), kPieceLength);
  for (char* line = lines.next(); line != nullptr && *line != '\0'; line = lines.next()) {
    const std::optional<sysinfo::Variable> variable = sysinfo::parse_variable(line);
    if (variable && !add(table, *variable)) return false;
  }
  return true;
}

// nullptr where there is none of this name.
const char* find_value(const systeminfo* table, const char* name) {
  if (table == nullptr || name == nullptr) return nullptr;
  for (std::int32_t i = 0; i < table->count; ++i) {
    if (std::strcmp(table->entries[i].name, name) == 0) return table->entries[i].value;
  }
  return nullptr;
}

}  // namespace

systeminfo* systeminfo_init(void) {
  const PostponedCancellation postponed;
  UniqueTable table(static_cast<systeminfo*>(zalloc(sizeof(systeminfo))));
  if (!table) return nullptr;
  UniqueFd opened = file::open_to_read(kVariablesFile);
  if (!opened || !read_variables(std::move(opened), *table)) return nullptr;
  return table.release();
}

const char* systeminfo_getvar(const systeminfo* info, const char* name) {
  const char* const value = find_value(info, name);
  return value == nullptr ? "" : value;
}

int systeminfo_getint(const systeminfo* info, const char* name) {
  const char* const value = systeminfo_getvar(info, name);
  return *value == '\0' ? -1 : rkutils::text::read_decimal(value);
}

void systeminfo_free(systeminfo* info) {
  if (info == nullptr) return;
  for (const Entry& entry : info->entries) {
    std::free(entry.name);
    std::free(entry.value);
  }
  std::free(info);
}
