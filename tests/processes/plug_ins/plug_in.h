/* What tests and their plug-ins have agreed upon. */
#ifndef TESTS_PROCESSES_PLUG_INS_PLUG_IN_H
#define TESTS_PROCESSES_PLUG_INS_PLUG_IN_H

/* The argument of a plug-in's init function, which may be NULL. The plug-in remembers where it is,
 * for its class factory, and calls these functions if there are any. */
typedef struct plug_in_argument {
  void (*during_init)(struct plug_in_argument* argument);
  /* Called by the destructor of a plug-in that has one: when the C library takes it out of memory,
   * or at the end of the program. The argument must be there still. */
  void (*during_destruction)(struct plug_in_argument* argument);
} plug_in_argument;

#endif
