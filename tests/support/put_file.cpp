#include "support/put_file.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace support {

void put(const std::string& path, const std::string& text) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder);
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file.good()) throw std::system_error(errno, std::generic_category(), "write " + path);
}

}  // namespace support
