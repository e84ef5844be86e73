#include "support/configd/values.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>
#include <utility>

namespace stand_in {

Values::Values(std::string path) : path_(std::move(path)) {
  std::ifstream file(path_);
  for (std::string line; std::getline(file, line);) {
    const std::size_t equals = line.find('=');
    if (line.empty() || line.front() == '#' || equals == std::string::npos) continue;
    set(line.substr(0, equals), line.substr(equals + 1));
  }
}

std::string Values::get(const std::string& key) const {
  const auto found = values_.find(key);
  return found == values_.end() ? "" : found->second;
}

void Values::set(const std::string& key, const std::string& value) { values_[key] = value; }

void Values::save() const {
  const std::string fresh = path_ + ".new";
  std::ofstream file(fresh, std::ios::trunc);
  for (const auto& [key, value] : values_) file << key << '=' << value << '\n';
  file.close();
  if (!file || std::rename(fresh.c_str(), path_.c_str()) != 0) {
    throw std::system_error(errno, std::generic_category(), path_);
  }
}

}  // namespace stand_in
