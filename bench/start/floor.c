/* A program that links what the library needs, and calls one function of each. */

#include <event2/event.h>
#include <zmq.h>

#include "start/stay.h"

int main(int argc, char** argv) {
  int major, minor, patch;
  (void)argv;
  zmq_version(&major, &minor, &patch);
  return event_get_version_number() == 0 || major == 0 ? 1 : end_or_stay(argc);
}
