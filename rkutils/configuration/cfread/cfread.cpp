#include <rkutils/cfread.h>
#include <rkutils/configuration/cfread/parser.h>
#include <rkutils/configuration/cfread/table.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/memory.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <syslog.h>

namespace cfread = rkutils::cfread;

// The size that the target's programs know.
static_assert(sizeof(void*) != 4 || sizeof(cfread_entry) == 16);

namespace {

struct CloseTable {
  void operator()(cfread_table* table) const noexcept { cfread_close(table); }
};
using UniqueTable = std::unique_ptr<cfread_table, CloseTable>;

// Behind the table, in the same memory, stands a copy of the path for later messages.
char* path_of(cfread_table* table) { return reinterpret_cast<char*>(table + 1); }

UniqueTable make_table(const char* path) {
  const std::size_t path_size = path != nullptr ? std::strlen(path) + 1 : 0;
  UniqueTable table(static_cast<cfread_table*>(zalloc(sizeof(cfread_table) + path_size)));
  if (table == nullptr) {
    ::syslog(LOG_ERR, "cfread: no mem to alloc config table");
  } else if (path != nullptr) {
    std::memcpy(path_of(table.get()), path, path_size);
  }
  return table;
}

bool is_empty(const char* text) { return text == nullptr || *text == '\0'; }

}  // namespace

cfread_table* cfread_open(const char* path) {
  const rkutils::internal::PostponedCancellation postponed;
  UniqueTable table = make_table(path);
  if (table == nullptr || !cfread::parse(*table, path)) return nullptr;
  table->filename = path_of(table.get());
  return table.release();
}

void cfread_close(cfread_table* table) {
  if (table == nullptr) return;
  cfread::free_entries(*table);
  std::free(table);
}

cfread_entry* cfread_find_entry(cfread_table* table, const char* key) {
  if (table == nullptr || is_empty(key)) return nullptr;
  return cfread::find_entry(*table, key);
}

cfread_entry* cfread_set_entry(cfread_table* table, const char* key, const char* value) {
  if (table == nullptr || is_empty(key)) return nullptr;
  cfread::UniqueEntry lost;
  cfread_entry* const entry = cfread::set_entry(*table, key, value != nullptr ? value : "", lost);
  // The program may have a pointer to it.
  static_cast<void>(lost.release());
  return entry;
}

int cfread_parse_with_callback(const char* path, cfread_callback callback, void* userdata,
                               bool report_empty) {
  if (callback == nullptr) return -1;
  const rkutils::internal::PostponedCancellation postponed;
  cfread_table table = {};
  table.callback = callback;
  table.userdata = userdata;
  table.report_empty = report_empty;
  return cfread::parse(table, path) ? 0 : -1;
}
