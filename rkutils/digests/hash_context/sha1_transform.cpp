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

// The words that the steps take: those of the block, and one for each further step, which is made
// of words of the sixteen steps before it. Where the loops are laid out, those sixteen are kept and
// places are constants; in a short loop a place for each step is one that need not be computed.
constexpr unsigned kScheduleWords = kUnrolled > 1 ? kBlockWords : kRounds* kSteps;
using Schedule = Word[kScheduleWords];

// The functions that mix three registers: b ? c : d, bit by bit, whether the number of ones is odd,
// and what two of the three say. The sum is an "or" of bits that exclude each other.
Word choose(Word b, Word c, Word d) { return ((c ^ d) & b) ^ d; }
Word parity(Word b, Word c, Word d) { return b ^ c ^ d; }
Word majority(Word b, Word c, Word d) { return (b & c) + ((b ^ c) & d); }

// The schedule is made while the steps go on: in a loop before them, compilers make it with
// vectors, whose parts wait for each other.
template <unsigned Round, Word (*Mix)(Word, Word, Word)>
void run_round(Registers& r, Schedule& words, const unsigned char* block) {
#pragma GCC unroll kUnrolled
  for (unsigned step = kSteps * Round; step < kSteps * (Round + 1); ++step) {
    const auto before = [&](unsigned steps) { return words[(step - steps) % kScheduleWords]; };
    const Word word = step < kBlockWords
                          ? load_high_first(block + std::size_t{4} * step)
                          : rotate_left(before(3) ^ before(8) ^ before(14) ^ before(16), 1);
    words[step % kScheduleWords] = word;
    // What is known early is added first: the last sum waits for the step before.
    const Word sum = Mix(r.b, r.c, r.d) + (r.e + kConstants[Round] + word);
    r = {rotate_left(r.a, 5) + sum, r.a, rotate_left(r.b, 30), r.c, r.d};
  }
}

}  // namespace

void sha1_transform(Word* state, const unsigned char* blocks, std::size_t count) {
  Schedule words;
  Registers r = {state[0], state[1], state[2], state[3], state[4]};
  for (; count > 0; --count, blocks += kBlockSize) {
    const Registers before = r;
    run_round<0, choose>(r, words, blocks);
    run_round<1, parity>(r, words, blocks);
    run_round<2, majority>(r, words, blocks);
    run_round<3, parity>(r, words, blocks);
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
  // It tells the last block, which may be a key.
  wipe(words);
}

}  // namespace rkutils::digests
