#include <rkutils/digests/hash_context/transforms.h>
#include <rkutils/digests/hash_context/words.h>
#include <rkutils/digests/wipe.h>

#include <cstddef>

namespace rkutils::digests {
namespace {

constexpr unsigned kRounds = 4;
constexpr unsigned kSteps = 20;       // in each round
constexpr unsigned kBlockWords = 16;  // those of the block, which begin the schedule

constexpr Word kConstants[kRounds] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};

struct Registers {
  Word a;
  Word b;
  Word c;
  Word d;
  Word e;
};

// One word for each step.
using Schedule = Word[kRounds * kSteps];

// The functions that mix three registers: b ? c : d, bit by bit, whether the number of ones is odd,
// and what two of the three say. The sum is an "or" of bits that exclude each other.
Word choose(Word b, Word c, Word d) { return ((c ^ d) & b) ^ d; }
Word parity(Word b, Word c, Word d) { return b ^ c ^ d; }
Word majority(Word b, Word c, Word d) { return (b & c) + ((b ^ c) & d); }

// The schedule is made while the steps go on: in a loop before them, compilers make it with
// vectors, whose parts wait for each other.
template <unsigned Round, Word (*Mix)(Word, Word, Word)>
void run_round(Registers& r, Schedule& words) {
#pragma GCC unroll kUnrolled
  for (unsigned step = kSteps * Round; step < kSteps * (Round + 1); ++step) {
    if (step >= kBlockWords) {
      words[step] =
          rotate_left(words[step - 3] ^ words[step - 8] ^ words[step - 14] ^ words[step - 16], 1);
    }
    // What is known early is added first: the last sum waits for the step before.
    const Word input = r.e + kConstants[Round] + words[step];
    r = {rotate_left(r.a, 5) + Mix(r.b, r.c, r.d) + input, r.a, rotate_left(r.b, 30), r.c, r.d};
  }
}

}  // namespace

void sha1_transform(Word* state, const unsigned char* blocks, std::size_t count) {
  Schedule words;
  Registers r = {state[0], state[1], state[2], state[3], state[4]};
  for (; count > 0; --count, blocks += kBlockSize) {
    const Registers before = r;
    for (std::size_t i = 0; i < kBlockWords; ++i) words[i] = load_high_first(blocks + 4 * i);
    run_round<0, choose>(r, words);
    run_round<1, parity>(r, words);
    run_round<2, majority>(r, words);
    run_round<3, parity>(r, words);
    r.a += before.a;
    r.b += before.b;
    r.c += before.c;
    r.d += before.d;
    r.e += before.e;
  }
  state[0] = r.a;
  state[1] = r.b;
  state[2] = r.c;
  state[3] = r.d;
  state[4] = r.e;
  // It begins with the last block itself, which may be a key.
  wipe(words);
}

}  // namespace rkutils::digests
