#include "cfread_fixture.h"

#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

Table open_table(const std::string& path) { return Table(cfread_open(path.c_str())); }

Entries entries_of(const cfread_table& table) {
  Entries entries;
  for (int slot = 0; slot < table.size; ++slot) {
    const cfread_entry* const entry = table.entries[slot];
    if (entry != nullptr) entries.emplace(entry->key, entry->value);
  }
  return entries;
}

int keep_all(const char* key, const char* value, void* passed) {
  static_cast<Passed*>(passed)->emplace_back(key, value);
  return 0;
}

support::LogLine err(std::string text) { return {LOG_ERR, std::move(text)}; }

support::LogLine emergency(std::string text) { return {LOG_EMERG, std::move(text)}; }

namespace {

bool in_child = false;

}  // namespace

// The leak checker asks this at a process's end. A child that ends in the middle of its work has
// freed nothing.
extern "C" RK_API int __lsan_is_turned_off();
int __lsan_is_turned_off() { return in_child ? 1 : 0; }

int exit_status_of(const std::function<void()>& action) {
  const pid_t child = ::fork();
  if (child == 0) {
    in_child = true;
    action();
    ::_exit(kDidNotExit);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  return WEXITSTATUS(status);
}

std::string CfreadTest::file(const std::string& name, const std::string& text) const {
  put(at(name), text);
  return at(name);
}
