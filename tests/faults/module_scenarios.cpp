// Plug-ins. Loading them is the C library's, which keeps memory for itself.

#include <rkutils/dynamic_module.h>

#include <optional>

#include "families.h"

namespace faults {
namespace {

struct Module {
  [[nodiscard]] std::string after() const { return module ? module->getLibPath() : "none"; }

  const std::string path = "/usr/lib/sensors/memory.so";
  std::optional<CDynamicModule> module;
};

}  // namespace

Scenarios plug_ins() {
  return {
      scenario<Module>("CDynamicModule::CDynamicModule",
                       [](Module& it) {
                         it.module.emplace(it.path);
                         return Word{"made"};
                       }),
  };
}

}  // namespace faults
