// What the daemon's replies mean.
#ifndef RKUTILS_MESSAGING_WWANMD_REPLY_H
#define RKUTILS_MESSAGING_WWANMD_REPLY_H

#include <string_view>

namespace rkutils::wwanmd {

struct Reply {
  enum class Kind {
    kOk,
    kError,
    kBusy,     // the daemon is at it, and will send another reply
    kInvalid,  // none of these words stands at the beginning
  };

  Kind kind;
  std::string_view text;  // what follows the word
};

// Reads the bytes that came in one piece. NULs and newlines are bytes like any other.
[[nodiscard]] Reply read_reply(std::string_view bytes) noexcept;

}  // namespace rkutils::wwanmd

#endif
