/* A plug-in that others use. */

#include <rkutils/export.h>

RK_API const char* plug_in_greeting(void);
const char* plug_in_greeting(void) { return "good morning"; }
