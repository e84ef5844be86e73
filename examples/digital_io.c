/*
 * digital-io: the router's digital inputs and outputs.
 *
 *     digital-io                   prints all values
 *     digital-io switch OUTPUT 0|1
 *     digital-io measure INPUT     prints the three numbers of the input's frequency
 *
 * What the driver refuses is in the log.
 */

#include <rkutils/dio.h>
#include <rkutils/text.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static unsigned show(void) {
  DioStatusAll all;
  uint32_t i;
  const unsigned result = dio_getStatus(&all);
  if (result != DIO_OK) return result;
  for (i = 1; i <= all.in.count; ++i) {
    printf("input %u: %d\n", (unsigned)i, dio_getInValueFromStatus(&all.in, i));
  }
  for (i = 1; i <= all.out.count; ++i) {
    printf("output %u: %d\n", (unsigned)i, dio_getOutValueFromStatus(&all.out, i));
  }
  return DIO_OK;
}

static unsigned measure(uint32_t input) {
  DioFrequency frequency;
  const unsigned begun = dio_setFrequencyActive(input, 1);
  unsigned result = begun;
  if (begun == DIO_OK || begun == DIO_ERR_ACTIVE) result = dio_frequency(input, &frequency);
  if (result == DIO_OK) {
    printf("%ld %ld %lu\n", frequency.first, frequency.second, frequency.value);
  }
  if (begun == DIO_OK) dio_setFrequencyActive(input, 0); /* somebody else's goes on */
  return result;
}

/* What is no number from 0 to `max` ends the program. Which inputs and outputs there are is not
 * known here: the library refuses the others. */
static uint32_t number_of(const char* text, uint32_t max) {
  int valid = 0;
  u_validRangeValueOf32(&valid, text, 0, max);
  if (valid != 0) {
    fprintf(stderr, "digital-io: no number from 0 to %lu: %s\n", (unsigned long)max, text);
    exit(EXIT_FAILURE);
  }
  return u_valueOf32(text);
}

int main(int argc, char** argv) {
  unsigned result = DIO_OK;
  if (argc == 1) {
    result = show();
  } else if (argc == 4 && strcmp(argv[1], "switch") == 0) {
    result = dio_setValue(number_of(argv[2], UINT32_MAX), (int)number_of(argv[3], 1));
  } else if (argc == 3 && strcmp(argv[1], "measure") == 0) {
    result = measure(number_of(argv[2], UINT32_MAX));
  } else {
    fputs("usage: digital-io [switch OUTPUT 0|1 | measure INPUT]\n", stderr);
    return EXIT_FAILURE;
  }
  if (result != DIO_OK) printf("failed: %u\n", result);
  return result == DIO_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
