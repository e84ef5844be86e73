#include "support/router/mounts.h"

#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace router {
namespace {

using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

void check(int result, const std::string& step) {
  if (result < 0) fail(step);
}

void mount_at(const std::string& source, const std::string& target, const char* type,
              unsigned long flags, const std::string& data = {}) {
  check(::mount(source.c_str(), target.c_str(), type, flags, data.empty() ? nullptr : data.c_str()),
        "mount " + (type != nullptr ? std::string(type) + " " : std::string()) + source + " on " +
            target);
}

// Not bind(): for strings that would be std::bind() where <functional> is included, which does
// nothing.
void bind_mount(const std::string& source, const std::string& target) {
  mount_at(source, target, nullptr, MS_BIND | MS_REC);
}

void make_folder(const std::string& path, mode_t mode = 0755) {
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) fail("mkdir " + path);
  // Past the umask; harmless where the folder is the host's and not ours to change.
  static_cast<void>(::chmod(path.c_str(), mode));
}

// mkdir -p. Folders that exist keep their mode.
void make_folders(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string parent = path.substr(0, slash);
    if (::access(parent.c_str(), F_OK) != 0) make_folder(parent);
  }
  if (::access(path.c_str(), F_OK) != 0) make_folder(path);
}

// A folder of the old root, reachable whatever is mounted over it later.
class OldFolder {
 public:
  explicit OldFolder(const std::string& path)
      : descriptor_(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!descriptor_) fail("open " + path);
  }

  [[nodiscard]] std::string path() const {
    return "/proc/self/fd/" + std::to_string(descriptor_.get());
  }

 private:
  UniqueFd descriptor_;
};

struct OldRoot {
  std::map<std::string, OldFolder> folders;     // "/home"
  std::map<std::string, std::string> symlinks;  // "/bin" -> "usr/bin"
};

// Top-level folders that are not taken over. The layers are those of a router around this one.
const std::set<std::string> kOurOwn = {".layers", "dev", "nvstatus", "proc",
                                       "run",     "sys", "tmp",      "var"};

OldRoot open_old_root() {
  OldRoot old;
  const UniqueDir root(::opendir("/"));
  if (!root) fail("opendir /");
  while (const dirent* entry = ::readdir(root.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || kOurOwn.count(name) != 0) continue;
    const std::string path = "/" + name;
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) continue;
    if (S_ISLNK(status.st_mode)) {
      char target[PATH_MAX];
      const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
      if (length > 0)
        old.symlinks.emplace(path, std::string(target, static_cast<std::size_t>(length)));
    } else if (S_ISDIR(status.st_mode)) {
      old.folders.emplace(path, OldFolder(path));
    }
  }
  return old;
}

bool lies_in(const std::string& path, const std::string& folder) {
  return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

// Where the new root is put together: an old folder that is needed for nothing else. It will be
// empty.
std::string building_site(const Options& options) {
  std::vector<std::string> needed = options.keeps;
  needed.insert(needed.end(), options.overlays.begin(), options.overlays.end());
  for (std::string path : {"/mnt", "/media", "/srv", "/opt", "/tmp"}) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) continue;
    const bool free = std::none_of(needed.begin(), needed.end(),
                                   [&](const std::string& each) { return lies_in(each, path); });
    if (free) return path;
  }
  errno = ENOENT;
  fail("no free folder to mount the new root on");
}

// The host's folder `name` under writable layers of ours. In a user namespace the host's folders
// belong to nobody; those in `writable` become ours, with all that is in them.
void overlay(const std::string& root, const std::string& name, const std::string& lower,
             std::initializer_list<const char*> writable) {
  const std::string layers = root + "/.layers/" + name;
  make_folders(layers + "/work");
  for (const char* folder : writable) make_folders(layers + "/upper/" + folder);
  make_folder(root + "/" + name);
  mount_at("overlay", root + "/" + name, "overlay", 0,
           "lowerdir=" + lower + ",upperdir=" + layers + "/upper,workdir=" + layers + "/work");
}

void make_devices(const std::string& root) {
  const std::string dev = root + "/dev";
  make_folders(dev + "/net");
  for (const char* name : {"full", "fuse", "net/tun", "null", "random", "tty", "urandom", "zero"}) {
    const std::string host = std::string("/dev/") + name;
    const std::string ours = dev + "/" + name;
    if (::access(host.c_str(), F_OK) != 0) continue;
    const UniqueFd file(::open(ours.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
    if (!file) fail("create " + ours);
    bind_mount(host, ours);
  }
  make_folder(dev + "/shm", 01777);
  mount_at("tmpfs", dev + "/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
  make_folder(dev + "/pts");
  mount_at("devpts", dev + "/pts", "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666");
  for (const auto& [link, target] :
       std::map<std::string, std::string>{{"ptmx", "pts/ptmx"},
                                          {"fd", "/proc/self/fd"},
                                          {"stdin", "/proc/self/fd/0"},
                                          {"stdout", "/proc/self/fd/1"},
                                          {"stderr", "/proc/self/fd/2"}}) {
    std::string path = dev;
    path.append("/").append(link);
    check(::symlink(target.c_str(), path.c_str()), "symlink " + path);
  }
}

void make_empty_folders(const std::string& root) {
  for (const char* name : {"/nvstatus", "/run", "/var", "/var/cache", "/var/lib", "/var/log",
                           "/var/run", "/var/spool"}) {
    make_folder(root + name);
  }
  for (const char* name : {"/tmp", "/var/lock", "/var/tmp"}) make_folder(root + name, 01777);
}

// The kernel's own file systems, of our namespaces. A user namespace may be denied a fresh /sys;
// the old one then serves.
void mount_kernel_folders(const std::string& root, const OldFolder& old_sys) {
  make_folder(root + "/proc", 0555);
  mount_at("proc", root + "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
  make_folder(root + "/sys", 0555);
  if (::mount("sysfs", (root + "/sys").c_str(), "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC,
              nullptr) != 0) {
    bind_mount(old_sys.path(), root + "/sys");
  }
}

void carry_over(const std::string& root, const OldRoot& old, const Options& options) {
  for (const auto& [path, target] : old.symlinks) {
    check(::symlink(target.c_str(), (root + path).c_str()), "symlink " + path);
  }
  for (const auto& [path, folder] : old.folders) {
    if (path == "/etc") {
      overlay(root, "etc", folder.path(), {"default"});
    } else if (path == "/usr") {
      std::vector<OldFolder> overlays;
      std::string lower;
      for (const std::string& tree : options.overlays) {
        lower += overlays.emplace_back(tree + "/usr").path() + ":";
      }
      overlay(root, "usr", lower + folder.path(), {"bin", "lib", "local/sbin", "sbin"});
    } else {
      make_folder(root + path);
      if (path != root) bind_mount(folder.path(), root + path);
    }
  }
}

// What a folder is, to tell it from another at the same path.
std::pair<dev_t, ino_t> identity(const std::string& path) {
  struct stat status = {};
  check(::stat(path.c_str(), &status), "stat " + path);
  return {status.st_dev, status.st_ino};
}

// Folders that must not be the host's, or tests would change the host.
std::vector<std::string> isolated_folders() {
  std::vector<std::string> folders = {"/"};
  for (const char* path : {"/dev", "/etc", "/run", "/tmp", "/usr", "/var"}) {
    if (::access(path, F_OK) == 0) folders.emplace_back(path);
  }
  return folders;
}

// A kept folder is the host's and can be written to, so it must not be one of the router's own, or
// hold one. Returns its true path.
std::string checked_keep(const std::string& path) {
  char resolved[PATH_MAX];
  if (::realpath(path.c_str(), resolved) == nullptr) fail("keep " + path);
  std::string folder = resolved;
  bool allowed = folder != "/";
  for (const char* own :
       {"/dev", "/etc", "/nvstatus", "/proc", "/run", "/sys", "/tmp", "/usr", "/var", "/var/cache",
        "/var/lib", "/var/lock", "/var/log", "/var/run", "/var/spool", "/var/tmp"}) {
    if (lies_in(own, folder)) allowed = false;
  }
  for (const char* all : {"/dev", "/etc", "/proc", "/sys"}) {
    if (lies_in(folder, all)) allowed = false;
  }
  if (!allowed) {
    errno = ENOTSUP;
    fail("keep " + folder + ", which the router replaces");
  }
  return folder;
}

// Folders that the new root would hide, in /tmp for instance, at their old places.
void keep(const std::string& root, const std::string& path, const OldFolder& folder) {
  make_folders(root + path);
  bind_mount(folder.path(), root + path);
}

void switch_root(const std::string& root) {
  check(::chdir(root.c_str()), "chdir " + root);
  // Not pivot_root(): the root of an initramfs cannot be pivoted.
  mount_at(".", "/", nullptr, MS_MOVE);
  check(::chroot("."), "chroot");
  check(::chdir("/"), "chdir /");
}

}  // namespace

void enter_root(const Options& options) {
  ::umask(022);
  check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "make the mounts private");
  const OldRoot old = open_old_root();
  const OldFolder old_sys("/sys");
  std::vector<std::string> keeps;
  std::vector<OldFolder> kept;
  for (const std::string& path : options.keeps)
    kept.emplace_back(keeps.emplace_back(checked_keep(path)));
  std::map<std::string, std::pair<dev_t, ino_t>> hosts;
  for (const std::string& path : isolated_folders()) hosts.emplace(path, identity(path));

  const std::string root = building_site(options);
  mount_at("tmpfs", root, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
  carry_over(root, old, options);
  make_empty_folders(root);
  make_devices(root);
  mount_kernel_folders(root, old_sys);
  for (std::size_t i = 0; i < kept.size(); ++i) keep(root, keeps[i], kept[i]);
  switch_root(root);

  for (const auto& [path, host] : hosts) {
    if (identity(path) != host) continue;
    errno = ENOTRECOVERABLE;
    fail(path + " is still the host's");
  }
}

}  // namespace router
