#include <rkutils/digests/hash_context/transforms.h>
#include <rkutils/digests/hash_context/words.h>

#include <cstddef>

namespace rkutils::digests {
namespace {

constexpr unsigned kSteps = 16;  // in each of the four rounds

// floor(2^32 * abs(sin(i + 1))), for step i.
constexpr Word kSines[4 * kSteps] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};

struct Registers {
  Word a;
  Word b;
  Word c;
  Word d;
};

// The four functions that mix three registers. The first is b ? c : d, bit by bit, and the second
// d ? b : c; a sum does for the "or" of bits that exclude each other, and its terms need not wait
// for one another.
Word choose_by_first(Word b, Word c, Word d) { return ((c ^ d) & b) ^ d; }
Word choose_by_last(Word b, Word c, Word d) { return (b & d) + (c & ~d); }
Word parity(Word b, Word c, Word d) { return b ^ (c ^ d); }
Word last(Word b, Word c, Word d) { return c ^ (b | ~d); }

// How a round goes through the block's words, and how far its steps turn.
struct Plan {
  unsigned char stride;
  unsigned char start;
  unsigned char turns[4];
};

constexpr Plan kPlans[4] = {{1, 0, {7, 12, 17, 22}},
                            {5, 1, {5, 9, 14, 20}},
                            {3, 5, {4, 11, 16, 23}},
                            {7, 0, {6, 10, 15, 21}}};

template <unsigned Round, Word (*Mix)(Word, Word, Word)>
void run_round(Registers& r, const unsigned char* block) {
  constexpr const Plan& kPlan = kPlans[Round];
#pragma GCC unroll kUnrolled
  for (unsigned step = 0; step < kSteps; ++step) {
    const std::size_t word = (kPlan.stride * step + kPlan.start) % kSteps;
    const Word input = load_low_first(block + 4 * word) + kSines[kSteps * Round + step];
    // What is known early is added first: the last sum waits for the step before.
    const Word sum = (r.a + input) + Mix(r.b, r.c, r.d);
    r = {r.d, r.b + rotate_left(sum, kPlan.turns[step % 4]), r.b, r.c};
  }
}

}  // namespace

void md5_transform(Word* state, const unsigned char* blocks, std::size_t count) {
  Registers r = {state[0], state[1], state[2], state[3]};
  for (; count > 0; --count, blocks += kBlockSize) {
    const Registers before = r;
    run_round<0, choose_by_first>(r, blocks);
    run_round<1, choose_by_last>(r, blocks);
    run_round<2, parity>(r, blocks);
    run_round<3, last>(r, blocks);
    r.a += before.a;
    r.b += before.b;
    r.c += before.c;
    r.d += before.d;
  }
  state[0] = r.a;
  state[1] = r.b;
  state[2] = r.c;
  state[3] = r.d;
}

}  // namespace rkutils::digests
