// What the program under test is compiled with. g++ and clang tell it in ways of their own.
#ifndef TESTS_SUPPORT_SANITIZERS_H
#define TESTS_SUPPORT_SANITIZERS_H

#if defined(__SANITIZE_ADDRESS__)
#define HAS_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define HAS_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HAS_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define HAS_THREAD_SANITIZER 1
#endif
#endif

#ifndef HAS_ADDRESS_SANITIZER
#define HAS_ADDRESS_SANITIZER 0
#endif
#ifndef HAS_THREAD_SANITIZER
#define HAS_THREAD_SANITIZER 0
#endif

#endif
