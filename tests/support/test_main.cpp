// main() of every test program: the tests run in a private router, the listing of them does not.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <gmock/gmock.h>
#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#endif

#include "support/private_router.h"

// Tests of internals have the objects of a layer (LAYERS) beside the library, so that its exported
// variables are there twice. The sanitizer is to mind those alone that differ in size.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "detect_odr_violation=1"; }

// ZeroMQ's threads and the C library keep order by means that ThreadSanitizer does not see in them. It
// judges what the library and its tests do.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
const char* __tsan_default_options() { return "ignore_noninstrumented_modules=1"; }

namespace {

// Valgrind looks for leaks here rather than at the end of each process: a forked child has not all that
// its parent's other threads know of.
bool leaks() {
#if __has_include(<valgrind/memcheck.h>)
  unsigned long leaked = 0;
  [[maybe_unused]] unsigned long dubious = 0;
  [[maybe_unused]] unsigned long reachable = 0;
  [[maybe_unused]] unsigned long suppressed = 0;
  VALGRIND_DO_LEAK_CHECK;
  VALGRIND_COUNT_LEAKS(leaked, dubious, reachable, suppressed);
  return leaked != 0;
#else
  return false;
#endif
}

}  // namespace

int main(int argc, char** argv) {
  const bool only_lists = std::any_of(argv, argv + argc, [](const char* argument) {
    return std::strcmp(argument, "--gtest_list_tests") == 0;
  });
  if (!only_lists) support::enter_private_router(argv);
  testing::InitGoogleMock(&argc, argv);
  // Tests have threads of their own when they fork.
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const int result = RUN_ALL_TESTS();
  return leaks() ? EXIT_FAILURE : result;
}
