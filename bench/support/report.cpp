#include "support/report.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <ostream>
#include <string_view>
#include <utility>

namespace bench {
namespace {

std::string reference_text(const Row& row) {
  return (row.kind == Reference::Kind::kFloor ? "floor: " : "") + row.against;
}

std::string figure_text(const Figures& figures) {
  using Scale = std::pair<double, const char*>;  // from how many on, and the unit
  static const std::vector<Scale> times = {{1e9, "s"}, {1e6, "ms"}, {1e3, "us"}, {1, "ns"}};
  static const std::vector<Scale> sizes = {{1024, "KiB"}, {1, "B"}};
  const double figure = figures.median();
  Scale scale;
  for (const Scale& each : figures.unit() == Unit::kBytes ? sizes : times) {
    scale = each;
    if (figure >= scale.first) break;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.4g %-2s", figure / scale.first, scale.second);
  return text;
}

// ---- JSON ----

// As a JSON string.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') result += '\\';
    result += character;
  }
  return result + '"';
}

// JSON has no infinity.
std::string number(double value) {
  if (!std::isfinite(value)) return "null";
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

const char* unit_name(Unit unit) {
  switch (unit) {
    case Unit::kNanoseconds:
      return "ns";
    case Unit::kBytes:
      return "B";
    case Unit::kInstructions:
      return "instructions";
  }
  return "";
}

std::string figures_json(const Figures& figures) {
  std::string json = "{\"median\": " + number(figures.median());
  if (figures.unit() == Unit::kInstructions) {
    return json + ", \"system_calls\": " + number(figures.system_calls()) + "}";
  }
  return json + ", \"spread_percent\": " + number(figures.spread()) + "}";
}

std::string row_json(const Row& row) {
  const bool peer = row.kind == Reference::Kind::kPeer;
  std::string json = "{\"work\": " + quoted(row.work) + ", \"against\": " + quoted(row.against) +
                     ", \"kind\": " + quoted(peer ? "peer" : "floor") +
                     ", \"goal\": " + number(row.goal);
  if (!row.usable()) return json + ", \"verdict\": \"no figure\"}";
  const bool counts = row.ours->unit() == Unit::kInstructions;
  json += ", \"clock\": " + quoted(row.clock == Clock::kReal ? "real" : "processor") +
          ", \"unit\": " + quoted(unit_name(row.ours->unit())) +
          ", \"ours\": " + figures_json(*row.ours) +
          ", \"theirs\": " + figures_json(*row.reference) + ", \"ratio\": " + number(row.ratio());
  if (!counts) json += ", \"verdict\": " + quoted(row.met() ? "met" : "missed");
  return json + "}";
}

}  // namespace

void print_table(const std::vector<Row>& rows) {
  std::printf("%-46s %12s %7s   %-46s %12s %7s %7s %6s\n", "work", "ours", "spread", "against",
              "median", "spread", "ratio", "goal");
  for (const Row& row : rows) {
    if (!row.usable()) {
      std::printf("%-46s no figure, beside %s\n", row.work.c_str(), reference_text(row).c_str());
      continue;
    }
    std::printf("%-46s %12s %6.1f%%   %-46s %12s %6.1f%% %7.3f %6.4g  %s\n", row.work.c_str(),
                figure_text(*row.ours).c_str(), row.ours->spread(), reference_text(row).c_str(),
                figure_text(*row.reference).c_str(), row.reference->spread(), row.ratio(), row.goal,
                row.met() ? "met" : "MISSED");
  }
}

void print_counts(const std::vector<Row>& rows) {
  std::printf("%-46s %14s %9s   %-46s %14s %9s %7s\n", "work", "instructions", "sys.calls",
              "against", "instructions", "sys.calls", "ratio");
  bool with_system_calls = false;
  for (const Row& row : rows) {
    if (!row.usable()) {
      std::printf("%-46s no figure, beside %s\n", row.work.c_str(), reference_text(row).c_str());
      continue;
    }
    if (row.ours->unit() == Unit::kBytes) continue;
    std::printf("%-46s %14.1f %9.1f   %-46s %14.1f %9.1f %7.3f\n", row.work.c_str(),
                row.ours->median(), row.ours->system_calls(), reference_text(row).c_str(),
                row.reference->median(), row.reference->system_calls(), row.ratio());
    with_system_calls |= row.ours->system_calls() >= 0.05 || row.reference->system_calls() >= 0.05;
  }
  if (with_system_calls) {
    std::puts(
        "\nNot counted: what the kernel does in the system calls, of which the table has the "
        "number,"
        "\nthose that prepare each time among them, and what other threads and processes do.");
  }
}

bool write_json(const std::vector<Row>& rows, int rounds, const std::string& path) {
  std::ofstream file(path);
  file << "{\"rounds\": " << rounds << ", \"rows\": [";
  const char* separator = "\n";
  for (const Row& row : rows) file << std::exchange(separator, ",\n") << row_json(row);
  file << "\n]}\n";
  file.close();
  return file.good();
}

}  // namespace bench
