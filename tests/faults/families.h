// The scenarios of each family of functions, as the layers' test programs put them together.
#ifndef TESTS_FAULTS_FAMILIES_H
#define TESTS_FAULTS_FAMILIES_H

#include "scenario.h"

namespace faults {

Scenarios configd();
Scenarios events();
Scenarios files();

}  // namespace faults

#endif
