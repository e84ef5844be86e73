// What a call prints.
#ifndef TESTS_SUPPORT_STANDARD_OUTPUT_H
#define TESTS_SUPPORT_STANDARD_OUTPUT_H

#include <functional>
#include <string>

namespace support {

// Calls `action` and returns every byte that it writes to standard output, through stdio or to the
// descriptor, none of which goes further. Expectations belong behind the call: the test program
// prints those that fail there too. An exception of the action comes out.
std::string standard_output_of(const std::function<void()>& action);

// The same for standard error.
std::string standard_error_of(const std::function<void()>& action);

}  // namespace support

#endif
