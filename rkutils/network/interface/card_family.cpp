// Cellular cards by the families of their names.

#include <rkutils/foundations/text/prefix.h>
#include <rkutils/interface.h>

#include <string_view>

namespace {

struct CardFamily {
  std::string_view prefix;
  int code;  // a bit of the family in the upper half, one of the vendors' group in the lower
};

// The first that fits counts. So "mc509" never does: it keeps its bit from being given to others.
constexpr CardFamily kFamilies[] = {
    {"gtm", 0x10001},  {"mc", 0x20002},     {"em", 0x40004},       {"me", 0x80004},
    {"mu", 0x80004},   {"mc509", 0x100004}, {"mpn", 0x200008},     {"mpl", 0x200008},
    {"trm", 0x400010}, {"sim", 0x800020},   {"tobyl2", 0x1000040}, {"laral6", 0x4000040},
    {"fn", 0x2000080}, {"le", 0x2000080},   {"lm", 0x2000080},     {"ln", 0x2000080},
};

}  // namespace

int card2family(const char* card) {
  if (card == nullptr) return 0;
  for (const CardFamily& family : kFamilies) {
    if (rkutils::text::begins_with(card, family.prefix)) return family.code;
  }
  return 0;
}
