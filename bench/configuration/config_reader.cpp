// Reading a file of 10,000 settings beside the same with the C++ library alone.

#include <rkutils/config_reader.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unordered_map>

#include <benchmark/benchmark.h>

#include "configuration/rows.h"
#include "support/comparison.h"

namespace bench::configuration {
namespace {

using benchmark::State;

constexpr int kSettings = 10000;
constexpr const char* kPath = "/tmp/settings.conf";

// With a comment now and then, and blanks as people write them.
void write_settings() {
  std::ofstream file(kPath);
  for (int i = 0; i < kSettings; ++i) {
    if (i % 20 == 0) file << "# interfaces from " << i << " on\n";
    file << key(i) << " = " << value(i) << '\n';
  }
}

// To the destruction of what was read, in both.

void read_10000_settings(State& state) {
  write_settings();
  for (auto _ : state) {
    ConfigReader reader;
    if (!reader.initialize(kPath, kSettings)) state.SkipWithError("not read");
    benchmark::DoNotOptimize(reader);
  }
}

bool is_blank(char byte) { return static_cast<unsigned char>(byte) <= ' '; }

std::string stripped(const std::string& text, std::size_t begin, std::size_t end) {
  while (begin < end && is_blank(text[begin])) ++begin;
  while (begin < end && is_blank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

void getline_and_unordered_map(State& state) {
  write_settings();
  for (auto _ : state) {
    std::unordered_map<std::string, std::string> settings;
    settings.reserve(kSettings);
    std::ifstream file(kPath);
    for (std::string line; std::getline(file, line);) {
      if (line.empty() || line[0] == '#') continue;
      const std::size_t equals = line.find('=');
      if (equals == std::string::npos) continue;
      const auto [setting, added] =
          settings.try_emplace(stripped(line, 0, equals), stripped(line, equals + 1, line.size()));
      if (!added) std::printf("duplicate %s\n", setting->first.c_str());
    }
    if (settings.size() != kSettings) state.SkipWithError("not read");
    benchmark::DoNotOptimize(settings);
  }
}

}  // namespace

void add_config_reader_rows() {
  compare("ConfigReader::initialize, 10,000 lines", read_10000_settings,
          {peer("getline, std::unordered_map", 1.4, getline_and_unordered_map)});
}

}  // namespace bench::configuration
