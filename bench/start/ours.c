/* A program that links the library and calls one function of it. */

#include <rkutils/text.h>

#include "start/stay.h"

int main(int argc, char** argv) {
  char text[34];
  (void)argv;
  return *i32toa(argc, text, 10) == '0' ? 1 : end_or_stay(argc);
}
