// main() of every test program: the tests run in a private router, the listing of them does not.

#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>

#include "support/private_router.h"

// Tests of internals have the objects of a layer (LAYERS) beside the library, so that its exported
// variables are there twice. The sanitizer is to mind those alone that differ in size.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "detect_odr_violation=1"; }

int main(int argc, char** argv) {
  const bool only_lists = std::any_of(argv, argv + argc, [](const char* argument) {
    return std::strcmp(argument, "--gtest_list_tests") == 0;
  });
  if (!only_lists) support::enter_private_router(argv);
  testing::InitGoogleMock(&argc, argv);
  // Tests have threads of their own when they fork.
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  return RUN_ALL_TESTS();
}
