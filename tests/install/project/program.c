#include <rkutils/rkutils.h>

#include <string.h>

int main(void) {
  char text[4];
  return strlcpy(text, "router", sizeof text) == 6 && strcmp(text, "rou") == 0 &&
                 configd_get(NULL, NULL) == -1
             ? 0
             : 1;
}
