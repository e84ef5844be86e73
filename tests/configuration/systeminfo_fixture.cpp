#include "systeminfo_fixture.h"

#include <algorithm>
#include <filesystem>
#include <random>

#include <unistd.h>

#include "support/open_descriptors.h"

namespace {

namespace fs = std::filesystem;

void remove_files() {
  for (const char* path : {"/etc/default/system-info", "/etc/oem", "/dev/sim", "/tmp/progress"}) {
    fs::remove_all(path);
  }
}

}  // namespace

SysteminfoTest::SysteminfoTest() {
  remove_files();
  descriptors_before_ = support::open_descriptors();
}

SysteminfoTest::~SysteminfoTest() { remove_files(); }

void SysteminfoTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

int wait_for_descriptor(const std::string& path, int other) {
  for (int waits = 0; waits < 10000; ++waits) {
    for (const auto& [descriptor, target] : support::open_descriptors()) {
      if (target == path && descriptor != other) return descriptor;
    }
    ::usleep(1000);
  }
  return -1;
}

std::vector<std::string> pieces_of(const std::string& contents, std::size_t size) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0; at < contents.size();) {
    const std::size_t line = std::min(contents.find('\n', at), contents.size() - 1) + 1 - at;
    const std::size_t length = std::min(line, size - 1);
    pieces.emplace_back(contents.substr(at, length).c_str());
    if (pieces.back().empty()) {
      pieces.pop_back();
      break;
    }
    at += length;
  }
  return pieces;
}

std::vector<std::string> random_files(int count) {
  std::mt19937 random(1);
  using namespace std::string_literals;
  const std::string bytes = "  ==\"\"\n\n##\0abA\t\r\x80\xff"s;
  std::vector<std::string> files;
  for (int i = 0; i < count; ++i) {
    std::string& file = files.emplace_back();
    for (unsigned left = random() % 64; left > 0; --left) file += bytes[random() % bytes.size()];
  }
  return files;
}
