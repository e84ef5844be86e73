/*
 * events: raises events and prints those of a source.
 *
 *     events raise NUMBER PARAMETER [TEXT]    for the event manager
 *     events print COUNT [ADDRESS]            the next COUNT ones of the source at ADDRESS
 */

#include <rkutils/event.h>
#include <rkutils/text.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zmq.h>

/* What is no number of 32 bits ends the program. */
static uint32_t number_of(const char* text) {
  int valid = 0;
  const uint32_t number = u_validValueOf32(&valid, text);
  if (valid != 0) {
    fprintf(stderr, "events: no number: %s\n", text);
    exit(EXIT_FAILURE);
  }
  return number;
}

static int raise_event(uint32_t number, uint32_t parameter, const char* text) {
  if (rkevent(number, parameter, text) == 0) return EXIT_SUCCESS;
  fputs("no event manager\n", stderr);
  return EXIT_FAILURE;
}

static void print_records(void* sink, uint32_t count) {
  rkevent_record record;
  while (count > 0) {
    const int size = zmq_recv(sink, &record, sizeof record, 0);
    if (size < 0) return;
    if (size != (int)sizeof record) continue; /* not a record: whoever listens there can send */
    printf("event %u, parameter %u: %.*s\n", (unsigned)record.event, (unsigned)record.parameter,
           (int)sizeof record.text, record.text);
    --count;
  }
}

static int print_events(uint32_t count, const char* address) {
  void* context = zmq_ctx_new();
  void* sink = address == NULL ? register_legacy_sink(context)
                               : register_legacy_sink_with_addr(context, address);
  if (sink != NULL) {
    print_records(sink, count);
    zmq_close(sink);
  } else {
    fprintf(stderr, "no sink: %s\n", zmq_strerror(zmq_errno()));
  }
  zmq_ctx_term(context);
  return sink != NULL ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
  if (argc >= 4 && strcmp(argv[1], "raise") == 0) {
    return raise_event(number_of(argv[2]), number_of(argv[3]), argv[4]);
  }
  if (argc >= 3 && strcmp(argv[1], "print") == 0) {
    return print_events(number_of(argv[2]), argv[3]);
  }
  fputs("usage: events raise NUMBER PARAMETER [TEXT]\n       events print COUNT [ADDRESS]\n",
        stderr);
  return EXIT_FAILURE;
}
