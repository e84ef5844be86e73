#include "support/dio_stand_in.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/mount.h>

#include "support/wire_text.h"

namespace support {
namespace {

constexpr char kFolder[] = "/sys/devices/halcyonix";

DioOperation parse_record(const std::string& line) {
  std::istringstream words(line);
  DioOperation operation;
  words >> operation.name >> operation.path >> operation.error;
  operation.bytes = read_quoted(words);
  return operation;
}

void unmount() { ::umount2(kFolder, MNT_DETACH); }

}  // namespace

bool operator==(const DioOperation& a, const DioOperation& b) {
  return a.name == b.name && a.path == b.path && a.bytes == b.bytes && a.error == b.error;
}

std::ostream& operator<<(std::ostream& out, const DioOperation& operation) {
  return out << operation.name << ' ' << operation.path << ' ' << operation.error << ' '
             << quote(operation.bytes);
}

DioStandIn::DioStandIn(const Setup& setup) {
  if (!std::filesystem::exists(kFolder)) sys_.emplace("/sys").make_folder("devices/halcyonix");
  std::vector<std::string> arguments = {"--folder", kFolder};
  if (setup.record_socket < 0) {
    record_ = "/var/lib/dio/record";
    std::filesystem::create_directories(std::filesystem::path(record_).parent_path());
    std::filesystem::remove(record_);
    arguments.insert(arguments.end(), {"--record", record_});
  } else {
    arguments.insert(arguments.end(), {"--record-socket", std::to_string(setup.record_socket)});
  }
  process_.start("tests/support/dio-stand-in", arguments, setup.record_socket);
  for (unsigned i = 1; i <= setup.inputs; ++i) add("din" + std::to_string(i));
  for (unsigned i = 1; i <= setup.outputs; ++i) add("dout" + std::to_string(i));
}

DioStandIn::~DioStandIn() {
  kill();
  unmount();
}

void DioStandIn::set_contents(const std::string& path, const std::string& bytes) {
  command("contents " + path + " " + quote(bytes));
}

void DioStandIn::set_measured(unsigned input, const std::string& bytes) {
  command("measured din" + std::to_string(input) + "/frequency " + quote(bytes));
}

void DioStandIn::fail(const std::string& operation, const std::string& path, int error,
                      unsigned done, unsigned times) {
  command("fault " + operation + " " + path + " " + std::to_string(done) + " " +
          std::to_string(times) + " error " + std::to_string(error));
}

void DioStandIn::take_only(const std::string& path, std::size_t count) {
  command("fault write " + path + " 0 1 take " + std::to_string(count));
}

std::string DioStandIn::contents(const std::string& path) const {
  std::ifstream file(std::string(kFolder) + "/" + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<DioOperation> DioStandIn::take_operations() {
  if (process_.id() > 0) command("sync");
  std::vector<DioOperation> all;
  std::ifstream file(record_);
  for (std::string line; std::getline(file, line);) all.push_back(parse_record(line));
  all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(taken_));
  taken_ += all.size();
  return all;
}

}  // namespace support
