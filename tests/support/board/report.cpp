#include "support/board/report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace board {
namespace {

const char* word_for(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return "passed";
    case Outcome::kSkipped:
      return "skipped";
    case Outcome::kFailed:
      break;
  }
  return "FAILED";
}

const char* status_for(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return "run";
    case Outcome::kSkipped:
      return "notrun";
    case Outcome::kFailed:
      break;
  }
  return "fail";
}

// XML allows no control characters, and a test may print any byte.
std::string as_xml(const std::string& text) {
  std::string xml;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '&') {
      xml += "&amp;";
    } else if (c == '<') {
      xml += "&lt;";
    } else if (c == '"') {
      xml += "&quot;";
    } else if ((byte < ' ' && c != '\n' && c != '\t') || byte > '~') {
      xml += '?';
    } else {
      xml += c;
    }
  }
  return xml;
}

}  // namespace

void Report::ended(const Result& result) {
  results_.push_back(result);
  std::printf("%4zu/%zu %-7s %7.2f s  %s%s%s\n", results_.size(), tests_, word_for(result.outcome),
              result.seconds, result.name.c_str(), result.reason.empty() ? "" : ": ",
              result.reason.c_str());
  if (result.outcome != Outcome::kPassed && !result.output.empty()) {
    std::fwrite(result.output.data(), 1, result.output.size(), stdout);
    std::puts("");
  }
  std::fflush(stdout);
}

void Report::waiting_for(const std::vector<std::string>& names) {
  std::printf("          waiting for");
  for (const std::string& name : names) std::printf(" %s", name.c_str());
  std::puts("");
  std::fflush(stdout);
}

void Report::write_junit(const std::string& path) const {
  std::ofstream file(path);
  file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"board\" tests=\""
       << results_.size() << "\" failures=\"" << names_of(Outcome::kFailed).size()
       << "\" skipped=\"" << names_of(Outcome::kSkipped).size() << "\">\n";
  for (const Result& result : results_) {
    file << "<testcase name=\"" << as_xml(result.name) << "\" status=\""
         << status_for(result.outcome) << "\" time=\"" << result.seconds << "\">";
    if (result.outcome == Outcome::kFailed) {
      file << "<failure message=\"" << as_xml(result.reason) << "\"/>";
    } else if (result.outcome == Outcome::kSkipped) {
      file << "<skipped/>";
    }
    file << "<system-out>" << as_xml(result.output) << "</system-out></testcase>\n";
  }
  file << "</testsuite>\n";
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

bool Report::summarise() const {
  const std::vector<std::string> failed = names_of(Outcome::kFailed);
  const std::chrono::duration<double> time = Clock::now() - start_;
  std::printf("%zu passed, %zu skipped, %zu failed, in %.0f s\n", names_of(Outcome::kPassed).size(),
              names_of(Outcome::kSkipped).size(), failed.size(), time.count());
  for (const std::string& name : failed) std::printf("  FAILED %s\n", name.c_str());
  std::fflush(stdout);
  return failed.empty();
}

std::vector<std::string> Report::names_of(Outcome outcome) const {
  std::vector<std::string> names;
  for (const Result& result : results_) {
    if (result.outcome == outcome) names.push_back(result.name);
  }
  return names;
}

}  // namespace board
