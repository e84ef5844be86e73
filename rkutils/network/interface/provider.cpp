// Providers by their numbers, out of the provider database.

#include <rkutils/foundations/file/command_lines.h>
#include <rkutils/interface.h>
#include <rkutils/memory.h>
#include <rkutils/network/interface/provider_line.h>
#include <rkutils/text.h>

#include <cstddef>
#include <cstring>
#include <string_view>

namespace {

using rkutils::file::CommandLines;

constexpr std::string_view kCommand = "/usr/bin/pdb -n ";
constexpr std::size_t kLineLength = 1024;
constexpr std::size_t kProviderSize = 64;

// What a shell would take for more than a part of a word or, of a space, for what is between words.
constexpr char kRefused[] = "|&;<>()$`\\\"'*?[]#~=%!{}\t\n\v\f\r";

bool is_harmless(const char* key) { return key[std::strcspn(key, kRefused)] == '\0'; }

// NULL when it would be cut.
const char* command_for(const char* key) {
  const std::size_t length = kCommand.size() + std::strlen(key);
  const char* const command = strformat("%s%s", kCommand.data(), key);
  return std::strlen(command) == length ? command : nullptr;
}

}  // namespace

char* pdb_find_provider(const char* key) {
  static char provider[kProviderSize];
  if (key == nullptr || *key == '\0' || !is_harmless(key)) return nullptr;
  const char* const command = command_for(key);
  if (command == nullptr) return nullptr;
  CommandLines lines(command, kLineLength);
  if (!lines) return nullptr;
  std::memset(provider, 0, sizeof provider);
  while (char* const line = lines->next_line()) {
    const char* const name = rkutils::network::provider_in(line);
    if (name == nullptr) continue;
    strlcpy(provider, name, sizeof provider);
    break;
  }
  return provider;
}
