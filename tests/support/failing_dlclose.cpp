#include "support/failing_dlclose.h"

#include <rkutils/export.h>

#include <utility>

#include <dlfcn.h>

namespace support {
namespace {

thread_local const FailingDlclose* failing = nullptr;

}  // namespace

FailingDlclose::FailingDlclose(std::function<int(void* library)> instead)
    : instead_(std::move(instead)) {
  failing = this;
}

FailingDlclose::~FailingDlclose() { failing = nullptr; }

}  // namespace support

// Stands before the C library's. C libraries differ in whether they declare it as not throwing.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" RK_API int dlclose(void* library) noexcept(noexcept(::dlclose(library))) {
  if (support::failing != nullptr) return support::failing->call(library);
  return reinterpret_cast<int (*)(void*)>(::dlsym(RTLD_NEXT, "dlclose"))(library);
}
