// A folder that scenarios work in.
#ifndef TESTS_FAULTS_FOLDER_H
#define TESTS_FAULTS_FOLDER_H

#include <string>

namespace faults {

// Empty on construction, gone on destruction, with umask 022.
class Folder {
 public:
  explicit Folder(std::string path);
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  // All that is in it: "a 755, a/file 644 "text", link -> target, fifo p 644"; "empty".
  [[nodiscard]] std::string contents() const;

 private:
  const std::string path_;
};

}  // namespace faults

#endif
