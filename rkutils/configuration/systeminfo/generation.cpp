// Generations of mobile networks.

#include <rkutils/systeminfo.h>

#include <strings.h>

namespace {

struct Technology {
  char name[6];
  signed char generation;
};

constexpr Technology kTechnologies[] = {
    {"CSD", 2},  {"GPRS", 2},  {"EDGE", 2}, {"UMTS", 3}, {"HSDPA", 3}, {"HSUPA", 3},
    {"HSPA", 3}, {"HSPA+", 3}, {"CDMA", 3}, {"LTE", 4},  {"ENDC", 5},  {"5G", 5},
};

}  // namespace

int get_generation(const char* technology) {
  if (technology == nullptr) return -1;
  for (const Technology& known : kTechnologies) {
    if (::strcasecmp(known.name, technology) == 0) return known.generation;
  }
  return -1;
}
