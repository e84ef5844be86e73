#include "status_fixture.h"

#include <filesystem>
#include <stdexcept>

namespace {

void remove_status() {
  std::filesystem::remove_all("/tmp/status");
  for (const auto& entry : std::filesystem::directory_iterator("/nvstatus")) {
    std::filesystem::remove_all(entry);
  }
}

}  // namespace

StatusTest::StatusTest() { remove_status(); }

StatusTest::~StatusTest() { remove_status(); }

StatusAppTest::StatusAppTest() {
  if (!status_.setup(BASEPATH_STATUS, "/app")) throw std::runtime_error("no status folder");
}

Tree app_tree() { return tree_of("/tmp/status/app"); }

String string_of(const std::string& bytes) {
  String text;
  text.concat(bytes.data(), static_cast<long>(bytes.size()));
  return text;
}

std::string bytes_of(String const& text) {
  return {text.c_str(), static_cast<std::size_t>(text.length())};
}
