// The readers of configuration files beside GLib's GKeyFile, inih, the standard library, and the
// least that their work takes.

#include <rkutils/cfread.h>
#include <rkutils/internal/unique_file.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <ini.h>

#include "configuration/rows.h"
#include "support/comparison.h"

namespace bench::configuration {
namespace {

using benchmark::State;
using rkutils::internal::UniqueFile;

constexpr char kPath[] = "/tmp/bench.conf";
constexpr int kLines = 10000;

// One file for all: a group for those that want one, which the others read as a key without value.
bool write_file() {
  std::ofstream file(kPath);
  file << "[group]\n";
  for (int i = 0; i < kLines; ++i) file << key(i) << " = " << value(i) << '\n';
  file.close();
  return file.good();
}

const char* path() {
  static const bool written = write_file();
  return written ? kPath : "";
}

struct CloseTable {
  void operator()(cfread_table* table) const { cfread_close(table); }
};
using Table = std::unique_ptr<cfread_table, CloseTable>;

void open_table(State& state) {
  path();
  for (auto _ : state) {
    const Table table(cfread_open(path()));
    if (table == nullptr || table->count != kLines) state.SkipWithError("not read");
  }
}

void open_gkeyfile(State& state) {
  path();
  for (auto _ : state) {
    GKeyFile* const file = g_key_file_new();
    if (g_key_file_load_from_file(file, path(), G_KEY_FILE_NONE, nullptr) == FALSE) {
      state.SkipWithError("not read");
    }
    g_key_file_free(file);
  }
}

// A line taken apart in one pass over its bytes, with the rules and the limits.
struct ScannedLine {
  char key[256];
  char value[256];

  bool scan(const char* from) {
    std::size_t length = 0;
    for (; *from != '=' && *from != '\n' && *from != '\r'; ++from) {
      if (*from == '\0' || length == sizeof key - 1) return false;
      if (*from != ' ' && static_cast<unsigned char>(*from) < 128) key[length++] = *from;
    }
    key[length] = '\0';
    length = 0;
    if (*from == '=') {
      do ++from;
      while (*from == ' ');
      for (; *from != '\n' && *from != '\r'; ++from) {
        if (*from == '\0' || length == sizeof value - 1) return false;
        if (static_cast<unsigned char>(*from) < 128) value[length++] = *from;
      }
    }
    value[length] = '\0';
    return true;
  }
};

// Calls `use` with each entry of the file.
template <typename Use>
void scan_file(Use use) {
  const UniqueFile file(std::fopen(path(), "re"));
  char text[1024];
  ScannedLine line;
  while (std::fgets(text, sizeof text, file.get()) != nullptr) {
    if (*text == '#' || std::strncmp(text, "include ", 8) == 0) continue;
    if (line.scan(text) && *line.key != '\0' && *line.value != '\0') use(line);
  }
}

// The least for a table: records with their texts, and a hashed index by number.
class LeastTable {
 public:
  LeastTable() : buckets_(64, kNone) {}
  ~LeastTable() {
    for (cfread_entry* const entry : entries_) {
      std::free(entry->key);
      std::free(entry->value);
      std::free(entry);
    }
  }
  LeastTable(const LeastTable&) = delete;
  LeastTable& operator=(const LeastTable&) = delete;

  void add(const ScannedLine& line) {
    const std::uint32_t hash = hash_of(line.key);
    if (find(line.key, hash) != nullptr) return;
    if (entries_.size() == buckets_.size()) grow();
    auto* const entry = static_cast<cfread_entry*>(std::calloc(1, sizeof(cfread_entry)));
    entry->key = ::strdup(line.key);
    entry->value = ::strdup(line.value);
    entry->index = static_cast<std::uint32_t>(entries_.size());
    entry->int_value = std::strtol(entry->value, nullptr, 10);
    entries_.push_back(entry);
    link({hash, kNone});
  }
  [[nodiscard]] std::size_t size() const { return entries_.size(); }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;
  struct Link {
    std::uint32_t hash;
    std::uint32_t next;
  };

  static std::uint32_t hash_of(const char* text) {
    std::uint32_t hash = 2166136261U;
    for (; *text != '\0'; ++text) hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
    return hash;
  }
  [[nodiscard]] const cfread_entry* find(const char* text, std::uint32_t hash) const {
    std::uint32_t at = buckets_[hash % buckets_.size()];
    while (at != kNone && (links_[at].hash != hash || std::strcmp(entries_[at]->key, text) != 0)) {
      at = links_[at].next;
    }
    return at != kNone ? entries_[at] : nullptr;
  }
  void link(Link link) {
    std::uint32_t& bucket = buckets_[link.hash % buckets_.size()];
    link.next = bucket;
    bucket = static_cast<std::uint32_t>(links_.size());
    links_.push_back(link);
  }
  void grow() {
    buckets_.assign(buckets_.size() * 2, kNone);
    std::vector<Link> links;
    links.swap(links_);
    for (const Link& each : links) link(each);
  }

  std::vector<cfread_entry*> entries_;
  std::vector<Link> links_;
  std::vector<std::uint32_t> buckets_;
};

void open_least(State& state) {
  path();
  for (auto _ : state) {
    LeastTable table;
    scan_file([&](const ScannedLine& line) { table.add(line); });
    if (table.size() != kLines) state.SkipWithError("not read");
  }
}

// All keys in an order that is not the file's.
std::vector<std::string> shuffled_keys() {
  std::vector<std::string> keys(kLines);
  int number = 0;
  for (std::string& each : keys) {
    each = key(number);
    number = (number + 7919) % kLines;
  }
  return keys;
}

void lookup(State& state) {
  const std::vector<std::string> keys = shuffled_keys();
  const Table table(cfread_open(path()));
  auto next = keys.begin();
  for (auto _ : state) {
    const cfread_entry* const found = cfread_find_entry(table.get(), next->c_str());
    benchmark::DoNotOptimize(found != nullptr ? found->value : nullptr);
    if (++next == keys.end()) next = keys.begin();
  }
}

void lookup_unordered_map(State& state) {
  const std::vector<std::string> keys = shuffled_keys();
  std::unordered_map<std::string, std::string> map;
  for (int i = 0; i < kLines; ++i) map[key(i)] = value(i);
  auto next = keys.begin();
  for (auto _ : state) {
    const auto found = map.find(*next);
    benchmark::DoNotOptimize(found != map.end() ? found->second.c_str() : nullptr);
    if (++next == keys.end()) next = keys.begin();
  }
}

int count_entry(const char* /*key*/, const char* /*value*/, void* count) {
  ++*static_cast<int*>(count);
  return 0;
}

void parse(State& state) {
  path();
  for (auto _ : state) {
    int count = 0;
    cfread_parse_with_callback(path(), count_entry, &count, false);
    if (count != kLines) state.SkipWithError("not read");
  }
}

int count_ini_entry(void* count, const char* /*section*/, const char* /*name*/,
                    const char* /*value*/) {
  ++*static_cast<int*>(count);
  return 1;
}

void parse_inih(State& state) {
  path();
  for (auto _ : state) {
    int count = 0;
    ini_parse(path(), count_ini_entry, &count);
    if (count != kLines) state.SkipWithError("not read");
  }
}

void parse_least(State& state) {
  path();
  // Called as a program's function is.
  int (*volatile callback)(const char*, const char*, void*) = count_entry;
  for (auto _ : state) {
    int count = 0;
    scan_file([&](const ScannedLine& line) { callback(line.key, line.value, &count); });
    if (count != kLines) state.SkipWithError("not read");
  }
}

void free_lines(list_node& list) {
  list_node* link = nullptr;
  list_node* following = nullptr;
  list_for_each_safe (link, following, &list) {
    file_line* const line = list_entry(link, file_line, links);
    std::free(line->text);
    std::free(line);
  }
}

void lines(State& state) {
  path();
  for (auto _ : state) {
    list_node list = LIST_NODE_INIT(list);
    if (read_file_lines(path(), &list) != kLines + 1) state.SkipWithError("not read");
    free_lines(list);
  }
}

void lines_getline(State& state) {
  path();
  for (auto _ : state) {
    std::list<std::string> list;
    std::ifstream file(path());
    std::string text;
    while (std::getline(file, text)) list.push_back(text);
    if (list.size() != kLines + 1) state.SkipWithError("not read");
  }
}

void lines_least(State& state) {
  path();
  for (auto _ : state) {
    list_node list = LIST_NODE_INIT(list);
    const UniqueFile file(std::fopen(path(), "re"));
    char text[1024];
    int count = 0;
    while (std::fgets(text, sizeof text, file.get()) != nullptr) {
      ++count;
      text[std::strcspn(text, "\r\n")] = '\0';
      auto* const line = static_cast<file_line*>(std::calloc(1, sizeof(file_line)));
      line->text = ::strdup(text);
      list_add_tail(&line->links, &list);
    }
    if (count != kLines + 1) state.SkipWithError("not read");
    free_lines(list);
  }
}

}  // namespace

void add_cfread_rows() {
  compare("cfread_open, 10,000 lines", open_table,
          {peer("GKeyFile", 0.8, open_gkeyfile),
           floor("scan, three allocations, index", 1.1, open_least)});
  compare("lookup in it", lookup, {peer("std::unordered_map", 1.2, lookup_unordered_map)});
  compare("cfread_parse_with_callback, 10,000", parse,
          {peer("inih", 0.22, parse_inih), floor("one byte scan", 1.1, parse_least)});
  compare("read_file_lines, 10,000", lines,
          {peer("getline into std::list", 1.3, lines_getline),
           floor("fgets and two allocations", 1.05, lines_least)});
}

}  // namespace bench::configuration
