#include "support/dio/driver.h"

#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

#include "support/wire_text.h"

namespace stand_in {
namespace {

constexpr char kNothingMeasured[] = "0 0 0\n";
constexpr char kMeasured[] = "1 1000 50\n";

[[noreturn]] void fail(int error) { throw std::system_error(error, std::generic_category()); }

bool begins_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

std::string access_text(int flags) {
  switch (flags & O_ACCMODE) {
    case O_RDONLY:
      return "r";
    case O_WRONLY:
      return "w";
    default:
      return "rw";
  }
}

// The name of an entry that is directly in the folder; empty for all others.
std::string name_in(const std::string& folder, const std::string& path) {
  const std::string beginning = folder.empty() ? "" : folder + "/";
  if (path.empty() || !begins_with(path, beginning)) return "";
  const std::string name = path.substr(beginning.size());
  return name.find('/') == std::string::npos ? name : "";
}

}  // namespace

Driver::Driver(Record& record) : record_(record) { nodes_[""].mode = S_IFDIR | 0755; }

void Driver::add(const std::string& name) {
  constexpr mode_t kReadOnly = S_IFREG | 0444;
  constexpr mode_t kReadWrite = S_IFREG | 0644;
  const bool input = begins_with(name, "din");
  remove(name);
  nodes_[name].mode = S_IFDIR | 0755;
  Node& value = nodes_[name + "/value"];
  value.mode = input ? kReadOnly : kReadWrite;
  value.contents = "0";
  if (!input) {
    value.take = take_value;
    return;
  }
  Node& frequency = nodes_[name + "/frequency"];
  frequency.mode = kReadWrite;
  frequency.contents = kNothingMeasured;
  frequency.measured = kMeasured;
  frequency.take = take_measurement;
}

void Driver::obey(const std::string& word, const std::string& rest) {
  std::istringstream words(rest);
  std::string path;
  words >> path;
  if (word == "sync") {
  } else if (word == "fault") {
    faults_.add(rest);
  } else if (word == "add") {
    add(path);
  } else if (word == "file") {
    remove(path);
    nodes_[path].mode = S_IFREG | 0755;
  } else if (word == "remove") {
    remove(path);
  } else if (word == "mode") {
    mode_t mode = 0;
    words >> std::oct >> mode;
    find(path).mode = (find(path).mode & S_IFMT) | mode;
  } else if (word == "contents") {
    find(path).contents = support::read_quoted(words);
  } else if (word == "measured") {
    find(path).measured = support::read_quoted(words);
  } else {
    throw std::invalid_argument("no such command: " + word);
  }
}

mode_t Driver::look_at(const std::string& path) {
  if (const int error = faults_.judge("look", path.empty() ? "." : path).error) fail(error);
  return find(path).mode;
}

void Driver::open_folder(const std::string& path) {
  judge("opendir", path);
  put_on_record("opendir", path, "", 0);
}

std::vector<FuseEntry> Driver::list(const std::string& path) {
  judge("readdir", path);
  std::vector<FuseEntry> entries = {{".", S_IFDIR}, {"..", S_IFDIR}};
  for (const auto& [each, node] : nodes_) {
    const std::string name = name_in(path, each);
    if (!name.empty()) entries.push_back({name, node.mode});
  }
  return entries;
}

void Driver::open(const std::string& path, int flags) {
  judge("open", path, access_text(flags));
  put_on_record("open", path, access_text(flags), 0);
}

std::string Driver::read(const std::string& path) {
  judge("read", path);
  const std::string& contents = find(path).contents;
  put_on_record("read", path, contents, 0);
  return contents;
}

std::size_t Driver::write(const std::string& path, std::string_view bytes) {
  const Verdict verdict = judge("write", path, bytes);
  if (verdict.taken < bytes.size()) {
    put_on_record("write", path, bytes.substr(0, verdict.taken), 0);
    return verdict.taken;
  }
  Node& node = find(path);
  if (const int error = node.take == nullptr ? EINVAL : node.take(node, bytes)) {
    refuse("write", path, bytes, error);
  }
  put_on_record("write", path, bytes, 0);
  return bytes.size();
}

void Driver::close(const std::string& path) {
  judge("close", path);
  put_on_record("close", path, "", 0);
}

int Driver::take_value(Node& node, std::string_view bytes) {
  if (bytes != "0" && bytes != "1") return EINVAL;
  node.contents = bytes;
  return 0;
}

int Driver::take_measurement(Node& node, std::string_view bytes) {
  const bool question = bytes == "-1";
  if (!question && bytes != "0" && bytes != "1") return EINVAL;
  const bool on = bytes != "0";
  if (on && node.measuring) return EEXIST;
  if (question) return 0;
  if (!on && !node.measuring) return ENOENT;
  node.measuring = on;
  node.contents = on ? node.measured : kNothingMeasured;
  return 0;
}

Driver::Node& Driver::find(const std::string& path) {
  const auto found = nodes_.find(path);
  if (found == nodes_.end()) fail(ENOENT);
  return found->second;
}

void Driver::remove(const std::string& path) {
  for (auto node = nodes_.begin(); node != nodes_.end();) {
    const bool inside = node->first == path || begins_with(node->first, path + "/");
    node = inside ? nodes_.erase(node) : std::next(node);
  }
}

void Driver::put_on_record(const std::string& operation, const std::string& path,
                           std::string_view bytes, int error) {
  record_.write(operation + " " + (path.empty() ? "." : path) + " " + std::to_string(error) + " " +
                support::quote(bytes));
}

void Driver::refuse(const std::string& operation, const std::string& path, std::string_view bytes,
                    int error) {
  put_on_record(operation, path, bytes, error);
  fail(error);
}

Verdict Driver::judge(const std::string& operation, const std::string& path,
                      std::string_view bytes) {
  const Verdict verdict = faults_.judge(operation, path.empty() ? "." : path);
  if (verdict.error != 0) refuse(operation, path, bytes, verdict.error);
  return verdict;
}

}  // namespace stand_in
