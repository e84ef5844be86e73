/*
 * routes: prints the interfaces that addresses are reached through.
 *
 *     routes [-x INTERFACE] [-b INTERFACE] ADDRESS...
 *
 * -x leaves an interface out of multipath transport, -b keeps it there as a spare.
 */

#define _POSIX_C_SOURCE 200809L /* has getaddrinfo() */

#include <rkutils/route.h>

#include <net/if.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

static int print_route(const char* text) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_flags = AI_NUMERICHOST;
  struct addrinfo* address;
  if (getaddrinfo(text, NULL, &hints, &address) != 0) {
    printf("%s: no address\n", text);
    return 1;
  }
  char interface[IF_NAMESIZE];
  const int result = route_get_interface(address, interface); /* the log says why there is none */
  printf("%s: %s\n", text, result == 0 ? interface : "no way there");
  freeaddrinfo(address);
  return result == 0 ? 0 : 1;
}

static int set_flags(const char* interface, int exclude, int backup) {
  if (ip_utils_set_multipath_flags(interface, exclude, backup) == 0) return 0;
  printf("%s: no such interface\n", interface);
  return 1;
}

int main(int argc, char** argv) {
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    const int exclude = strcmp(argv[i], "-x") == 0;
    const int backup = strcmp(argv[i], "-b") == 0;
    if (!exclude && !backup) {
      status |= print_route(argv[i]);
    } else if (++i < argc) {
      status |= set_flags(argv[i], exclude, backup);
    }
  }
  return status;
}
