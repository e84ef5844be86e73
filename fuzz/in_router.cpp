// For fuzz targets with the option ROUTER: the program starts itself again in a private router.

#include "support/private_router.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
  support::enter_private_router(*argv);
  return 0;
}
