// Where models and generators take their choices from: random numbers in tests, the bytes of an input in
// fuzzers.
#ifndef TESTS_SUPPORT_CHOICES_H
#define TESTS_SUPPORT_CHOICES_H

#include <cstddef>
#include <functional>

namespace support {

// Gives a number from 0 on that is less than `bound`, which is not 0 and not above 65536.
using Choices = std::function<std::size_t(std::size_t bound)>;

}  // namespace support

#endif
