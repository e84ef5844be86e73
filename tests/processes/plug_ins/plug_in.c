/* A plug-in that tells the log of each call; with those functions that it is compiled to have. It
 * is loaded with errno set, as by a constructor that has to do with the system. */

#include "plug_in.h"

#include <rkutils/export.h>

#include <errno.h>
#include <stddef.h>
#include <syslog.h>

__attribute__((constructor)) static void set_errno(void) { errno = EPERM; }

#ifdef HAS_INIT
static plug_in_argument* remembered = NULL;

RK_API int dynamic_module_init(plug_in_argument* argument);
int dynamic_module_init(plug_in_argument* argument) {
  syslog(LOG_INFO, "init");
  remembered = argument;
  if (argument != NULL && argument->during_init != NULL) argument->during_init(argument);
  return -1;
}
#endif

#ifdef HAS_DESTRUCTOR
__attribute__((destructor)) static void destroy(void) {
  if (remembered != NULL && remembered->during_destruction != NULL)
    remembered->during_destruction(remembered);
}
#endif

#ifdef HAS_DONE
RK_API int dynamic_module_done(void);
int dynamic_module_done(void) {
  syslog(LOG_INFO, "done");
  return -1;
}
#endif

#ifdef HAS_FACTORY
RK_API void* getClassFactory(void);
void* getClassFactory(void) {
  syslog(LOG_INFO, "factory");
#ifdef HAS_INIT
  return remembered;
#else
  return NULL;
#endif
}
#endif

/* Something in any case. */
RK_API extern const int plug_in_exists;
const int plug_in_exists = 1;
