// The stand-in's configuration: a readable file of lines "key=value".
#ifndef TESTS_SUPPORT_CONFIGD_VALUES_H
#define TESTS_SUPPORT_CONFIGD_VALUES_H

#include <map>
#include <string>

namespace stand_in {

class Values {
 public:
  // Reads the file. Empty lines and lines that begin with '#' are comments.
  explicit Values(std::string path);

  // The value of `key`, "" where there is none.
  [[nodiscard]] std::string get(const std::string& key) const;

  void set(const std::string& key, const std::string& value);

  // Puts the file in place of the old one at once, in the order of the keys and without comments.
  void save() const;

 private:
  std::string path_;
  std::map<std::string, std::string> values_;
};

}  // namespace stand_in

#endif
