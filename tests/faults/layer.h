// A layer's scenarios, as its test program has them.
#ifndef TESTS_FAULTS_LAYER_H
#define TESTS_FAULTS_LAYER_H

#include <initializer_list>
#include <string>
#include <utility>

#include "scenario.h"

namespace faults {

struct Layer {
  std::string name;  // its table is cases/NAME.txt
  Scenarios scenarios;
};

// Each test program defines it.
Layer layer();

// The scenarios of several families.
inline Scenarios together(std::initializer_list<Scenarios> families) {
  Scenarios all;
  for (const Scenarios& family : families) all.insert(all.end(), family.begin(), family.end());
  return all;
}

}  // namespace faults

#endif
