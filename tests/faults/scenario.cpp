#include "scenario.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace faults {
namespace {

struct NamedError {
  std::string_view name;
  int error;
};

constexpr NamedError kErrors[] = {
    {"E2BIG", E2BIG},
    {"EACCES", EACCES},
    {"EADDRINUSE", EADDRINUSE},
    {"EADDRNOTAVAIL", EADDRNOTAVAIL},
    {"EAFNOSUPPORT", EAFNOSUPPORT},
    {"EAGAIN", EAGAIN},
    {"EBADF", EBADF},
    {"EBUSY", EBUSY},
    {"ECHILD", ECHILD},
    {"ECONNABORTED", ECONNABORTED},
    {"ECONNREFUSED", ECONNREFUSED},
    {"ECONNRESET", ECONNRESET},
    {"EDESTADDRREQ", EDESTADDRREQ},
    {"EDQUOT", EDQUOT},
    {"EEXIST", EEXIST},
    {"EFAULT", EFAULT},
    {"EFBIG", EFBIG},
    {"EHOSTUNREACH", EHOSTUNREACH},
    {"EIDRM", EIDRM},
    {"EINTR", EINTR},
    {"EINVAL", EINVAL},
    {"EIO", EIO},
    {"EISCONN", EISCONN},
    {"EISDIR", EISDIR},
    {"ELOOP", ELOOP},
    {"EMFILE", EMFILE},
    {"EMLINK", EMLINK},
    {"EMSGSIZE", EMSGSIZE},
    {"ENAMETOOLONG", ENAMETOOLONG},
    {"ENETDOWN", ENETDOWN},
    {"ENETUNREACH", ENETUNREACH},
    {"ENFILE", ENFILE},
    {"ENOBUFS", ENOBUFS},
    {"ENODEV", ENODEV},
    {"ENOENT", ENOENT},
    {"ENOLCK", ENOLCK},
    {"ENOMEM", ENOMEM},
    {"ENOPROTOOPT", ENOPROTOOPT},
    {"ENOSPC", ENOSPC},
    {"ENOSYS", ENOSYS},
    {"ENOTCONN", ENOTCONN},
    {"ENOTDIR", ENOTDIR},
    {"ENOTEMPTY", ENOTEMPTY},
    {"ENOTSOCK", ENOTSOCK},
    {"ENOTTY", ENOTTY},
    {"ENXIO", ENXIO},
    {"EOPNOTSUPP", EOPNOTSUPP},
    {"EOVERFLOW", EOVERFLOW},
    {"EPERM", EPERM},
    {"EPIPE", EPIPE},
    {"EPROTONOSUPPORT", EPROTONOSUPPORT},
    {"ERANGE", ERANGE},
    {"EROFS", EROFS},
    {"ESPIPE", ESPIPE},
    {"ESRCH", ESRCH},
    {"ETIMEDOUT", ETIMEDOUT},
    {"ETXTBSY", ETXTBSY},
    {"EXDEV", EXDEV},
};

}  // namespace

std::string text_of(long result) { return std::to_string(result); }

std::string text_of(bool result) { return result ? "true" : "false"; }

std::string text_of(const char* result) {
  if (result == nullptr) return "NULL";
  std::string text = "\"";
  for (; *result != '\0'; ++result) {
    if (*result == '\n') {
      text += "\\n";
    } else {
      text += *result;
    }
  }
  return text + '"';
}

std::string text_of(WithErrno result) {
  std::string text = std::to_string(result.result);
  if (result.result < 0) text += " " + name_of_error(result.error);
  return text;
}

int error_named(const std::string& name) {
  const auto* const found =
      std::find_if(std::begin(kErrors), std::end(kErrors),
                   [&](const NamedError& known) { return known.name == name; });
  if (found == std::end(kErrors)) throw std::out_of_range("no errno is known as " + name);
  return found->error;
}

std::string name_of_error(int error) {
  const auto* const found =
      std::find_if(std::begin(kErrors), std::end(kErrors),
                   [&](const NamedError& known) { return known.error == error; });
  return found != std::end(kErrors) ? std::string(found->name) : "errno " + std::to_string(error);
}

}  // namespace faults
