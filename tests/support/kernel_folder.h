// Files of a test's among the kernel's own, in /proc and /sys.
#ifndef TESTS_SUPPORT_KERNEL_FOLDER_H
#define TESTS_SUPPORT_KERNEL_FOLDER_H

#include <filesystem>
#include <string>

namespace support {

// Lets a test add files to /proc or /sys and replace the kernel's, for this process and all others
// in the private router:
//
//     KernelFolder proc("/proc");
//     proc.put("sysinfo/dwhw", "18\n");           // the kernel has none here
//     proc.put("net/arp", "IP address ...\n");    // instead of the kernel's
//
//     KernelFolder sys("/sys");
//     sys.make_folder("devices/halcyonix");       // and then whatever a test does with folders
//
// Neither file system takes files, and /proc cannot be under an overlay. So the object mounts a
// folder in memory over it, in which each of the kernel's entries is a link to the entry itself, at
// a place where the file system is still to be seen. Folders in which something is put become real
// ones with links for all that the kernel has in them. Paths lead where they always did, /proc/self
// and what is below it included, for each process its own. What differs:
//   - Entries are links to lstat(), readlink() and readdir().
//   - They stand for what the kernel had when its folder was taken over; but in /proc there is one
//     for each id that a process may get, up to kProcesses above the newest one. Those that no
//     process has lead nowhere.
//   - What the kernel has in /sys cannot be written.
//   - /proc/mounts shows the mounts made here.
//
// Ends with the object: everything is as it was. One object at a time for one folder. Refuses other
// folders and other spellings of the two, and to work outside a private router.
class KernelFolder {
 public:
  // How many processes may be started, threads included, until one has no entry in /proc.
  static constexpr int kProcesses = 1000;

  explicit KernelFolder(const std::string& folder);
  ~KernelFolder();
  KernelFolder(const KernelFolder&) = delete;
  KernelFolder& operator=(const KernelFolder&) = delete;

  // Makes a file with this text, in the place of what is there; also the folders on its way.
  void put(const std::string& name, const std::string& text) const;

  // Makes a folder that takes files, and those on its way. What is in them already stays.
  void make_folder(const std::string& name) const;

  // The path of an entry. With what it has put or made itself a test may do what it likes: remove,
  // link, chmod. All other entries lead to the kernel's own, the machine's that the test runs on:
  // what would change them is not for tests.
  [[nodiscard]] std::string at(const std::string& name) const {
    return ours_ / std::filesystem::path(name).relative_path();
  }

 private:
  const std::filesystem::path ours_;
  const std::filesystem::path kernels_;  // where the kernel's folder is to be seen meanwhile
};

}  // namespace support

#endif
