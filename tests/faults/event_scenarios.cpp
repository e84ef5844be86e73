// Raising events.

#include <rkutils/event.h>

#include <filesystem>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

// With a file in the place of the event manager's pipe.
struct EventManager {
  EventManager() { support::put("/tmp/status/event-manager/throw", ""); }

  // Whether the record has come.
  [[nodiscard]] static std::string after() {
    const auto size = std::filesystem::file_size("/tmp/status/event-manager/throw");
    return std::to_string(size) + " bytes";
  }

  const Folder folder{"/tmp/status"};
};

}  // namespace

Scenarios events() {
  return {
      scenario<EventManager>(
          "rkevent", [](EventManager& /*it*/) { return with_errno(rkevent(17, 1, "wwan0")); }),
  };
}

}  // namespace faults
