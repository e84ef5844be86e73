// The file tree of the private router.
#ifndef TESTS_SUPPORT_ROUTER_MOUNTS_H
#define TESTS_SUPPORT_ROUTER_MOUNTS_H

#include "support/router/router.h"

namespace router {

// Replaces the root of this mount namespace, which must be private to us. Throws std::system_error
// with the failing step.
//
//   /usr /etc            the host's, with a layer of our own on top that takes every change
//   /tmp /var /run /nvstatus
//                        empty
//   /dev                 the usual character devices, /dev/shm, /dev/pts, and no /dev/log yet
//   /proc                this pid namespace's
//   /sys                 this network namespace's
//   everything else      the host's own folders, but one that nothing needs: it is empty
//
// Must run as process 1 of the pid namespace, or /proc would show another.
void enter_root(const Options& options);

}  // namespace router

#endif
