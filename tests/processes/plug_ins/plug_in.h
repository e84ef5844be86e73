/* What tests and their plug-ins have agreed upon. */
#ifndef TESTS_PROCESSES_PLUG_INS_PLUG_IN_H
#define TESTS_PROCESSES_PLUG_INS_PLUG_IN_H

/* The argument of a plug-in's init function, which may be NULL. The plug-in remembers where it is,
 * for its class factory, and calls this function if there is one. */
typedef struct plug_in_argument {
  void (*during_init)(struct plug_in_argument* argument);
} plug_in_argument;

#endif
