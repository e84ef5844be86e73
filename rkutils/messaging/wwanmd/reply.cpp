#include <rkutils/messaging/wwanmd/reply.h>

namespace rkutils::wwanmd {
namespace {

struct Word {
  std::string_view text;
  Reply::Kind kind;
};

constexpr Word kWords[] = {
    {"OK", Reply::Kind::kOk},
    {"ERROR", Reply::Kind::kError},
    {"BUSY", Reply::Kind::kBusy},
};

}  // namespace

Reply read_reply(std::string_view bytes) noexcept {
  for (const Word& word : kWords) {
    if (bytes.substr(0, word.text.size()) == word.text) {
      return {word.kind, bytes.substr(word.text.size())};
    }
  }
  return {Reply::Kind::kInvalid, {}};
}

}  // namespace rkutils::wwanmd
