#include <rkutils/rkutils.h>

#include <string>

int main() {
  char text[4];
  return strlcpy(text, "router", sizeof text) == 6 && std::string(text) == "rou" &&
                 configd_get(nullptr, nullptr) == -1
             ? 0
             : 1;
}
