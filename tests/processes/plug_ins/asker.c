/* A plug-in that calls what another one has: its class factory is a text of that. */

#include <rkutils/export.h>

const char* plug_in_greeting(void);

RK_API const void* getClassFactory(void);
const void* getClassFactory(void) { return plug_in_greeting(); }
