/* A plug-in that wants a variable, which nobody has. */

#include <rkutils/export.h>

extern const int plug_in_missing_number;

RK_API extern const int* const plug_in_number;
const int* const plug_in_number = &plug_in_missing_number;
