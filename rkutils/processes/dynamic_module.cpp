// Plug-ins: shared libraries that a program loads while it runs.

#include <rkutils/dynamic_module.h>
#include <rkutils/internal/postponed_cancellation.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <syslog.h>

namespace {

using rkutils::internal::PostponedCancellation;

// NULL when there is none. The reasons of a failure are errno's and dlerror()'s.
void* open_library(const std::string& path) noexcept {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return nullptr;
  }
  errno = 0;  // the loader does not always set it
  return ::dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
}

// A function of the library, or NULL.
template <typename Function>
Function* find_function(void* library, const char* name) noexcept {
  return reinterpret_cast<Function*>(::dlsym(library, name));
}

}  // namespace

CDynamicModule::CDynamicModule(const std::string& libPath) : handle_(nullptr), lib_path_(libPath) {}

CDynamicModule::~CDynamicModule() {
  if (handle_ == nullptr) return;
  const PostponedCancellation postponed;
  if (auto* const done = find_function<void()>(handle_, "dynamic_module_done")) {
    ::syslog(LOG_DEBUG, "Calling done function for shared library \"%s\"", lib_path_.c_str());
    done();
  }
  ::syslog(LOG_DEBUG, "closing shared library \"%s\"", lib_path_.c_str());
  errno = 0;
  // Still loaded for the library's own destructors, should they come back to it: they must not be
  // able to load it once more while it is being taken out of memory.
  const int result = ::dlclose(handle_);
  const int error = errno;
  handle_ = nullptr;
  if (result == 0) return;
  const char* const reason = ::dlerror();
  ::syslog(LOG_WARNING, "dlclose() failed, rc=%i, dlerror=%s, errno=%s (lib=%s)", result,
           reason != nullptr ? reason : "<null>", std::strerror(error), lib_path_.c_str());
}

int CDynamicModule::load(void* arg) {
  const PostponedCancellation postponed;
  if (handle_ != nullptr) {
    ::syslog(LOG_DEBUG, "Dynamic module %s already loaded", lib_path_.c_str());
    return -1;
  }
  handle_ = open_library(lib_path_);
  if (handle_ == nullptr) {
    ::syslog(LOG_ERR, "Unable to open shared library \"%s\" - error=%s", lib_path_.c_str(),
             std::strerror(errno));
    return -1;
  }
  ::syslog(LOG_DEBUG, "opened shared library \"%s\"", lib_path_.c_str());
  if (auto* const init = find_function<void(void*)>(handle_, "dynamic_module_init")) {
    ::syslog(LOG_DEBUG, "calling init function for shared library \"%s\"", lib_path_.c_str());
    init(arg);
  }
  return 0;
}

void* CDynamicModule::getClassFactory() const {
  constexpr const char* kName = "getClassFactory";
  const PostponedCancellation postponed;
  if (handle_ == nullptr) {
    ::syslog(LOG_ERR, "Library not loaded");
    return nullptr;
  }
  auto* const get_factory = find_function<void*()>(handle_, kName);
  if (get_factory == nullptr) {
    ::syslog(LOG_ERR, "Symbol \"%s\" not found in shared library \"%s\"", kName, lib_path_.c_str());
    return nullptr;
  }
  ::syslog(LOG_DEBUG, "Retrieving classfactory from shared library \"%s\"", lib_path_.c_str());
  return get_factory();
}

// Programs call it on an object.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
const char* CDynamicModule::lastError() const { return ::dlerror(); }

const std::string& CDynamicModule::getLibPath() const { return lib_path_; }
