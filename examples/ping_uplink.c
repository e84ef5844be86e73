/*
 * ping-uplink: tells whether a host answers through an uplink, whichever uplink is in use.
 *
 *     ping-uplink INTERFACE HOST [GATEWAY]
 *
 * With a gateway the routing table does not matter. The steps are in the log.
 */

#include <rkutils/ping.h>

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    fputs("usage: ping-uplink INTERFACE HOST [GATEWAY]\n", stderr);
    return EXIT_FAILURE;
  }
  const char* interface = argv[1];
  const char* host = argv[2];
  const char* gateway = argc == 4 ? argv[3] : NULL;
  time_difference took;
  if (__rawping(interface, host, gateway, NULL, NULL, 2000, -1, &took, NULL) != 0) {
    printf("%s: no answer through %s\n", host, interface);
    return EXIT_FAILURE;
  }
  printf("%s: answered through %s after %d.%06d s\n", host, interface, (int)took.seconds,
         (int)(took.nanoseconds / 1000));
  return EXIT_SUCCESS;
}
