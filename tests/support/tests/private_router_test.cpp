// Tests run in a private router, on the installed library.

#include "support/private_router.h"

#include <rkutils/memory.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

namespace {

TEST(PrivateRouter, IsWhereTestsRun) { EXPECT_TRUE(support::inside_private_router()); }

TEST(PrivateRouter, HasTheLibraryAtItsInstalledPath) {
  std::free(zalloc(1));
  Dl_info info = {};
  ASSERT_NE(::dladdr(::dlsym(RTLD_DEFAULT, "zalloc"), &info), 0);
  EXPECT_EQ(std::filesystem::canonical(info.dli_fname), "/usr/lib/librkutils.so.1.0.0");
}

TEST(PrivateRouter, HasAProcessTreeOfItsOwn) {
  EXPECT_LT(::getpid(), 100);
  std::ifstream name("/proc/1/comm");
  std::string text;
  std::getline(name, text);
  EXPECT_EQ(text, "private-router");
}

// Written by another router, or left behind by one, it means nothing.
TEST(PrivateRouter, IsNotTakenForOneByAMarkerAlone) {
  std::ofstream("/run/private-router") << "mnt:[1]";
  EXPECT_FALSE(support::inside_private_router());
  std::ofstream("/run/private-router") << "";
  EXPECT_FALSE(support::inside_private_router());
}

}  // namespace
