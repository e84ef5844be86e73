// Running this program in a private router.
#ifndef TESTS_SUPPORT_PRIVATE_ROUTER_H
#define TESTS_SUPPORT_PRIVATE_ROUTER_H

#include <string>

namespace support {

// True in a private router, where the router's own paths may be written.
bool inside_private_router();

// Starts this program again in a private router of its own, with the library at its installed path
// and the same arguments; returns only when it is in one already. The source and the build tree
// stay visible. Where the environment has RKUTILS_RUN_UNDER, its words stand before the program in
// there: "valgrind --quiet", for instance.
void enter_private_router(char** argv);

// A program of the build tree, by its path below it.
std::string built_program(const std::string& path);

// A file of the source tree, by its path below it.
std::string source_file(const std::string& path);

}  // namespace support

#endif
