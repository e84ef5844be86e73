// Files and directories.

#include <rkutils/file.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

using support::put;

// As literals: what acts must not allocate.
constexpr const char* kFolder = "/tmp/faults";
constexpr const char* kFile = "/tmp/faults/file";

struct Files {
  [[nodiscard]] std::string after() const { return folder.contents(); }

  const Folder folder{kFolder};
};

void put_file(Files& /*files*/) { put(kFile, "text\n"); }

}  // namespace

Scenarios files() {
  return {
      scenario<Files>("dropfile", put_file, [](Files&) { return dropfile(kFile); }),
  };
}

}  // namespace faults
