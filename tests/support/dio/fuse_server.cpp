#include "support/dio/fuse_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stand_in {
namespace {

// What one write brings at most.
constexpr std::size_t kLargestWrite = 4096;
// The kernel wants room for any request.
constexpr std::size_t kBufferSize = FUSE_MIN_READ_BUFFER + kLargestWrite;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

// Takes a structure off the beginning. Requests have no particular alignment for us.
template <typename Structure>
Structure take(std::string_view& body) {
  Structure taken = {};
  const std::size_t size = std::min(sizeof taken, body.size());  // older kernels' are shorter
  std::memcpy(&taken, body.data(), size);
  body.remove_prefix(size);
  return taken;
}

template <typename Structure>
std::string bytes_of(const Structure& structure) {
  return {static_cast<const char*>(static_cast<const void*>(&structure)), sizeof structure};
}

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

// Of the request's bytes the name that they begin with.
std::string name_in(std::string_view body) { return std::string(body.substr(0, body.find('\0'))); }

bool has_reply(std::uint32_t operation) {
  return operation != FUSE_FORGET && operation != FUSE_BATCH_FORGET && operation != FUSE_INTERRUPT;
}

static_assert(sizeof(fuse_dirent) == FUSE_NAME_OFFSET, "the name follows");

// How readdir() tells what an entry is.
std::uint32_t entry_type(mode_t mode) { return (mode & S_IFMT) >> 12U; }

}  // namespace

FuseServer::FuseServer(const std::string& folder, FuseFiles& files)
    : files_(files),
      device_(::open("/dev/fuse", O_RDWR | O_CLOEXEC)),
      buffer_(kBufferSize),
      paths_{"", ""} {
  if (!device_) fail("open /dev/fuse");
  nodes_[{"", S_IFDIR}] = FUSE_ROOT_ID;
  const std::string options =
      "fd=" + std::to_string(device_.get()) +
      ",rootmode=40755,user_id=0,group_id=0,default_permissions,allow_other";
  if (::mount("dio-stand-in", folder.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
    fail("mount fuse on " + folder);
  }
}

bool FuseServer::serve() {
  const ssize_t length = ::read(device_.get(), buffer_.data(), buffer_.size());
  if (length < 0) {
    if (errno == ENODEV) return false;
    // A request that was taken back, or a signal.
    if (errno == ENOENT || errno == EINTR || errno == EAGAIN) return true;
    fail("read /dev/fuse");
  }
  std::string_view body(buffer_.data(), static_cast<std::size_t>(length));
  const fuse_in_header header = take<fuse_in_header>(body);
  if (!has_reply(header.opcode)) return true;
  try {
    reply(header.unique, 0, answer(header, body));
  } catch (const std::system_error& error) {
    reply(header.unique, error.code().value(), {});
  }
  return true;
}

std::string FuseServer::answer(const fuse_in_header& header, std::string_view body) {
  if (header.opcode == FUSE_INIT) return answer_init(body);
  const std::string path = paths_.at(static_cast<std::size_t>(header.nodeid));
  switch (header.opcode) {
    case FUSE_LOOKUP:
      return answer_lookup(join(path, name_in(body)));
    case FUSE_GETATTR:
      return answer_attributes(path);
    case FUSE_OPENDIR:
      files_.open_folder(path);
      return bytes_of(fuse_open_out());
    case FUSE_READDIR:
      return answer_list(path, body);
    case FUSE_OPEN: {
      files_.open(path, static_cast<int>(take<fuse_open_in>(body).flags));
      fuse_open_out out = {};
      out.open_flags = FOPEN_DIRECT_IO;  // each read and write comes to us as it is
      return bytes_of(out);
    }
    case FUSE_READ:
      return answer_read(path, body);
    case FUSE_WRITE:
      return answer_write(path, body);
    case FUSE_FLUSH:
      files_.close(path);
      return {};
    case FUSE_RELEASE:
    case FUSE_RELEASEDIR:
      return {};
    default:
      throw std::system_error(ENOSYS, std::generic_category());
  }
}

std::string FuseServer::answer_init(std::string_view body) {
  const fuse_init_in in = take<fuse_init_in>(body);
  fuse_init_out out = {};
  out.major = FUSE_KERNEL_VERSION;
  out.minor = std::min<std::uint32_t>(in.minor, FUSE_KERNEL_MINOR_VERSION);
  out.max_write = kLargestWrite;
  return bytes_of(out);
}

std::string FuseServer::answer_lookup(const std::string& path) {
  const mode_t mode = files_.look_at(path);
  fuse_entry_out out = {};
  out.nodeid = node_of(path, mode);
  out.attr = attributes_of(path, mode);
  return bytes_of(out);
}

std::string FuseServer::answer_attributes(const std::string& path) {
  fuse_attr_out out = {};
  out.attr = attributes_of(path, files_.look_at(path));
  return bytes_of(out);
}

std::string FuseServer::answer_list(const std::string& path, std::string_view body) {
  const fuse_read_in in = take<fuse_read_in>(body);
  const std::vector<FuseEntry> entries = files_.list(path);
  std::string out;
  for (auto i = static_cast<std::size_t>(in.offset); i < entries.size(); ++i) {
    const auto& [name, mode] = entries[i];
    fuse_dirent entry = {};
    entry.ino = node_of(join(path, name), mode);
    entry.off = i + 1;
    entry.namelen = static_cast<std::uint32_t>(name.size());
    entry.type = entry_type(mode);
    const std::size_t begin = out.size();
    const std::size_t length = FUSE_DIRENT_ALIGN(sizeof entry + name.size());
    if (begin + length > in.size) break;
    out.append(bytes_of(entry)).append(name).resize(begin + length);
  }
  return out;
}

std::string FuseServer::answer_read(const std::string& path, std::string_view body) {
  const fuse_read_in in = take<fuse_read_in>(body);
  const std::string contents = files_.read(path);
  const auto begin = std::min<std::uint64_t>(in.offset, contents.size());
  return contents.substr(static_cast<std::size_t>(begin), in.size);
}

std::string FuseServer::answer_write(const std::string& path, std::string_view body) {
  const fuse_write_in in = take<fuse_write_in>(body);
  fuse_write_out out = {};
  out.size = static_cast<std::uint32_t>(files_.write(path, body.substr(0, in.size)));
  return bytes_of(out);
}

void FuseServer::reply(std::uint64_t request, int error, std::string_view bytes) const {
  fuse_out_header header = {};
  header.len = static_cast<std::uint32_t>(sizeof header + bytes.size());
  header.error = -error;
  header.unique = request;
  const std::string message = bytes_of(header).append(bytes);
  // ENOENT: whoever asked is gone.
  if (::write(device_.get(), message.data(), message.size()) < 0 && errno != ENOENT) {
    fail("write /dev/fuse");
  }
}

fuse_attr FuseServer::attributes_of(const std::string& path, mode_t mode) {
  fuse_attr attributes = {};
  attributes.ino = node_of(path, mode);
  attributes.mode = mode;
  attributes.nlink = S_ISDIR(mode) ? 2 : 1;
  // As files of drivers say, whatever they hold.
  if (S_ISREG(mode)) attributes.size = kLargestWrite;
  attributes.blksize = kLargestWrite;
  return attributes;
}

std::uint64_t FuseServer::node_of(const std::string& path, mode_t mode) {
  const auto [node, is_new] = nodes_.try_emplace({path, mode & S_IFMT}, paths_.size());
  if (is_new) paths_.push_back(path);
  return node->second;
}

}  // namespace stand_in
