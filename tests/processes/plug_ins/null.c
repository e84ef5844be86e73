/* A plug-in that has all three names, with nothing behind them. */

#include <rkutils/export.h>

__asm__(
    ".globl dynamic_module_init\n"
    ".set dynamic_module_init, 0\n"
    ".globl dynamic_module_done\n"
    ".set dynamic_module_done, 0\n"
    ".globl getClassFactory\n"
    ".set getClassFactory, 0\n");

/* Something in any case. */
RK_API extern const int plug_in_exists;
const int plug_in_exists = 1;
