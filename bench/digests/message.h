// What is hashed.
#ifndef BENCH_DIGESTS_MESSAGE_H
#define BENCH_DIGESTS_MESSAGE_H

#include <cstddef>
#include <random>
#include <vector>

namespace bench::digests {

inline std::vector<unsigned char> make_message(std::size_t length) {
  std::minstd_rand random(1);
  std::vector<unsigned char> message(length);
  for (unsigned char& byte : message) byte = static_cast<unsigned char>(random() >> 8U);
  return message;
}

}  // namespace bench::digests

#endif
