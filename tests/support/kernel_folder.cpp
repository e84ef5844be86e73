#include "support/kernel_folder.h"

#include <rkutils/internal/scope_guard.h>

#include <cerrno>
#include <fstream>
#include <system_error>

#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "support/private_router.h"
#include "support/put_file.h"

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr char kKernelsFolders[] = "/run/kernel-folders";
constexpr char kProc[] = "/proc";
constexpr char kSys[] = "/sys";

[[noreturn]] void fail(int error, const std::string& step) {
  throw std::system_error(error, std::generic_category(), step);
}

void check(bool done, const std::string& step) {
  if (!done) fail(errno, step);
}

// The path of the kernel's folder while another lies over it.
fs::path place_for(const std::string& folder) {
  if (folder != kProc && folder != kSys) fail(EINVAL, "mount over " + folder);
  if (!inside_private_router()) fail(EPERM, "mount over " + folder + " of the host");
  fs::path place = kKernelsFolders + folder;
  if (fs::exists(place)) fail(EBUSY, "mount over " + folder + " twice");
  return place;
}

void link_entry(const fs::path& kernels, const fs::path& ours, const fs::path& name) {
  const fs::path target = kernels / name;
  const fs::path link = ours / name;
  check(::symlink(target.c_str(), link.c_str()) == 0 || errno == EEXIST, "link " + link.string());
}

// Links for all that is in one of the kernel's folders.
void link_entries(const fs::path& kernels, const fs::path& ours) {
  for (const fs::directory_entry& entry : fs::directory_iterator(kernels)) {
    link_entry(kernels, ours, entry.path().filename());
  }
}

// The id that was given last. The next ones follow it, and then begin anew.
int newest_process(const fs::path& kernels) {
  std::ifstream load(kernels / "loadavg");
  std::string field;
  while (load >> field) {
  }
  return std::stoi(field);
}

// Processes come and go, so that each id has its link.
void link_processes(const fs::path& kernels, const fs::path& ours) {
  const int last = newest_process(kernels) + KernelFolder::kProcesses;
  for (int id = 1; id <= last; ++id) link_entry(kernels, ours, std::to_string(id));
}

// The kernel's devices and drivers are the machine's, whatever router looks at them.
void make_read_only(const fs::path& kernels) {
  struct statvfs status = {};
  check(::statvfs(kernels.c_str(), &status) == 0, "statvfs " + kernels.string());
  // A user namespace may not take these from an inherited mount.
  const unsigned long kept = status.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC);
  check(::mount(nullptr, kernels.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept,
                nullptr) == 0,
        "remount " + kernels.string());
}
static_assert(int{ST_NOSUID} == int{MS_NOSUID} && int{ST_NODEV} == int{MS_NODEV} &&
              int{ST_NOEXEC} == int{MS_NOEXEC});

void remove_place(const fs::path& place) {
  std::error_code ignored;
  fs::remove(place, ignored);
}

void unmount(const fs::path& folder) { ::umount2(folder.c_str(), MNT_DETACH); }

}  // namespace

KernelFolder::KernelFolder(const std::string& folder) : ours_(folder), kernels_(place_for(folder)) {
  using rkutils::internal::ScopeGuard;
  fs::create_directories(kernels_);
  ScopeGuard removal([&] { remove_place(kernels_); });
  // With all that is mounted in it: a user namespace may not take an inherited mount alone.
  check(::mount(ours_.c_str(), kernels_.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
        "bind " + folder);
  ScopeGuard kernels_unmount([&] { unmount(kernels_); });
  if (ours_ == kSys) make_read_only(kernels_);
  check(
      ::mount("tmpfs", ours_.c_str(), "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755") == 0,
      "mount over " + folder);
  ScopeGuard ours_unmount([&] { unmount(ours_); });
  link_entries(kernels_, ours_);
  if (ours_ == kProc) link_processes(kernels_, ours_);
  ours_unmount.dismiss();
  kernels_unmount.dismiss();
  removal.dismiss();
}

KernelFolder::~KernelFolder() {
  unmount(ours_);
  unmount(kernels_);
  remove_place(kernels_);
}

void KernelFolder::put(const std::string& name, const std::string& text) const {
  const fs::path path = at(name);
  make_folder(fs::path(name).parent_path());
  fs::remove_all(path);
  support::put(path, text);
}

void KernelFolder::make_folder(const std::string& name) const {
  fs::path way;
  for (const fs::path& part : fs::path(name).relative_path()) {
    way /= part;
    const fs::path ours = ours_ / way;
    if (fs::symlink_status(ours).type() == fs::file_type::directory) continue;
    fs::remove(ours);
    fs::create_directory(ours);
    const fs::path kernels = kernels_ / way;
    if (fs::is_directory(kernels)) link_entries(kernels, ours);
  }
}

}  // namespace support
