// The cellular cards: which there can be, and the files that tell of them.
#ifndef RKUTILS_MESSAGING_WWANMD_CARD_H
#define RKUTILS_MESSAGING_WWANMD_CARD_H

#include <cstddef>

namespace rkutils::wwanmd {

// Cards are numbered 0 to 5 and 10 to 15. Logs LOG_ERR "invalid wwan card %d" for any other number.
[[nodiscard]] bool check_card(int card) noexcept;

struct CardPath {
  char text[256];
};

// Where the daemon of a card listens.
[[nodiscard]] CardPath server_path(int card) noexcept;

// Whether the daemon has marked the card as being in reset, and leaves it so for five looks. A
// second passes after each, so that a card that has come out of reset gets one more.
[[nodiscard]] bool is_in_reset(int card) noexcept;

// Whether the daemon has marked the card as suspended.
[[nodiscard]] bool is_suspended(int card) noexcept;

}  // namespace rkutils::wwanmd

#endif
