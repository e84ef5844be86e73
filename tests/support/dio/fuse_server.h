// The kernel's side of a file system that a program makes up: the protocol of /dev/fuse
// (linux/fuse.h), as far as reading and writing files takes it.
#ifndef TESTS_SUPPORT_DIO_FUSE_SERVER_H
#define TESTS_SUPPORT_DIO_FUSE_SERVER_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <linux/fuse.h>
#include <sys/types.h>

namespace stand_in {

// An entry of a folder.
struct FuseEntry {
  std::string name;
  mode_t mode;  // type and mode bits
};

// What is in the file system. Paths are relative to its root, which is "". An operation that fails
// throws std::system_error with the error that the caller is to get.
class FuseFiles {
 public:
  FuseFiles() = default;
  virtual ~FuseFiles() = default;
  FuseFiles(const FuseFiles&) = delete;
  FuseFiles& operator=(const FuseFiles&) = delete;

  // Type and mode bits.
  virtual mode_t look_at(const std::string& path) = 0;

  virtual void open_folder(const std::string& path) = 0;
  virtual std::vector<FuseEntry> list(const std::string& path) = 0;

  // `flags` are those of open(2).
  virtual void open(const std::string& path, int flags) = 0;
  // All that can be read.
  virtual std::string read(const std::string& path) = 0;
  // Returns how much of it was taken.
  virtual std::size_t write(const std::string& path, std::string_view bytes) = 0;
  // A descriptor is closed.
  virtual void close(const std::string& path) = 0;
};

// Mounts a file system and serves it to all programs of the mount namespace. The kernel remembers
// nothing: it asks each time. Not for the program's own use: it would wait for itself.
class FuseServer {
 public:
  // Throws std::system_error. What is mounted stays when the server ends; using it fails then.
  FuseServer(const std::string& folder, FuseFiles& files);

  // Can be read when there is a request.
  [[nodiscard]] int descriptor() const { return device_.get(); }

  // Serves one request. False when the file system is gone.
  bool serve();

 private:
  std::string answer(const fuse_in_header& header, std::string_view body);
  std::string answer_init(std::string_view body);
  std::string answer_lookup(const std::string& path);
  std::string answer_attributes(const std::string& path);
  std::string answer_list(const std::string& path, std::string_view body);
  std::string answer_read(const std::string& path, std::string_view body);
  std::string answer_write(const std::string& path, std::string_view body);
  void reply(std::uint64_t request, int error, std::string_view bytes) const;

  fuse_attr attributes_of(const std::string& path, mode_t mode);
  std::uint64_t node_of(const std::string& path, mode_t mode);

  FuseFiles& files_;
  rkutils::internal::UniqueFd device_;
  std::vector<char> buffer_;
  // Nodes are numbered from 1, the root. A file that comes in a folder's place is another node.
  std::vector<std::string> paths_;
  std::map<std::pair<std::string, mode_t>, std::uint64_t> nodes_;
};

}  // namespace stand_in

#endif
