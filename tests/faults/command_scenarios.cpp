// Programs started, the device's end, temporary files.

#include <rkutils/command.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

struct Words {
  ~Words() { freeargv(vector); }
  Words() = default;
  Words(const Words&) = delete;
  Words& operator=(const Words&) = delete;

  [[nodiscard]] std::string after() const {
    std::string text = vector == nullptr ? "no vector" : "";
    for (int i = 0; i < count; ++i) text += "[" + std::string(vector[i]) + "]";
    return text;
  }

  char** vector = nullptr;
  int count = 0;
};

struct Output {
  [[nodiscard]] std::string after() const { return text_of(buffer); }

  char buffer[64] = "untouched";
};

// A process's id stands for itself.
Word process_id(int result) { return {result > 1 ? "a process" : result == -1 ? "-1" : "odd"}; }

// ---- The end of the device ----

// Gives up the right to ask the kernel for it, on this thread.
void give_up_rebooting() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  if (::syscall(SYS_capget, &header, sets) == 0) {
    sets[CAP_TO_INDEX(CAP_SYS_BOOT)].effective &= ~CAP_TO_MASK(CAP_SYS_BOOT);
    if (::syscall(SYS_capset, &header, sets) == 0) return;
  }
  throw std::system_error(errno, std::generic_category(), "capabilities");
}

// Without a site's script, and perhaps with the marker that keeps the device on. The kernel
// refuses.
class Ending {
 public:
  explicit Ending(std::string marker) : marker_(std::move(marker)) {
    give_up_rebooting();
    if (!marker_.empty()) support::put(marker_, "");
  }
  ~Ending() {
    if (!marker_.empty()) fs::remove(marker_);
  }
  Ending(const Ending&) = delete;
  Ending& operator=(const Ending&) = delete;

  static std::string after() { return {}; }

 private:
  const std::string marker_;
};

struct PlainEnding : Ending {
  PlainEnding() : Ending("") {}
};
struct SkippedReboot : Ending {
  SkippedReboot() : Ending("/nvstatus/skip-reboot") {}
};
struct SkippedPowerOff : Ending {
  SkippedPowerOff() : Ending("/nvstatus/skip-poweroff") {}
};

template <typename State>
Scenario ending(std::string name, void (*end)(int, int)) {
  return in(Process::kOwn, scenario<State>(std::move(name), [end](State&) {
              end(1, 2);
              return Word{"done"};
            }));
}

// ---- Temporary files ----

struct Temporary {
  // The file, without the characters that make its name its own.
  [[nodiscard]] std::string after() const {
    std::string contents = folder.contents();
    if (contents == "empty") return contents;
    return contents.substr(0, contents.find('.')) + contents.substr(contents.find(' '));
  }

  const Folder folder{"/tmp/faults"};
};

}  // namespace

Scenarios commands() {
  return {
      scenario<Words>("makeargv",
                      [](Words& it) { return makeargv("one 'two'", &it.vector, &it.count); }),
      scenario<Output>(
          "eval_command",
          [](Output& it) { return eval_command("echo text", it.buffer, sizeof it.buffer); }),
      in(Process::kOwn, scenario<Nothing>("_exec_command",
                                          [](Nothing&) {
                                            return _exec_command(0, "/bin/sh", "sh", "-c", "exit 7",
                                                                 static_cast<char*>(nullptr));
                                          })),
      in(Process::kOwn,
         scenario<Nothing>("run_command", [](Nothing&) { return run_command("exit 7", 0); })),
      in(Process::kOwn,
         scenario<Nothing>("run_command in the background",
                           [](Nothing&) { return process_id(run_command("exit 7", 1)); })),
      ending<PlainEnding>("system_reboot", system_reboot),
      ending<SkippedReboot>("system_reboot when skipped", system_reboot),
      ending<PlainEnding>("system_poweroff", system_poweroff),
      ending<SkippedPowerOff>("system_poweroff when skipped", system_poweroff),
      scenario<Temporary>(
          "create_tmpfile",
          [](Temporary&) {
            return Word{create_tmpfile("/tmp/faults/name.XXXXXX") != nullptr ? "a name" : "NULL"};
          }),
  };
}

}  // namespace faults
