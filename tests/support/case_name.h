// Names of parameterised tests.
#ifndef TESTS_SUPPORT_CASE_NAME_H
#define TESTS_SUPPORT_CASE_NAME_H

#include <string>

#include <gtest/gtest.h>

namespace support {

// Names a case by the member `name` of its parameter.
struct CaseName {
  template <typename Parameter>
  std::string operator()(const testing::TestParamInfo<Parameter>& test_case) const {
    return test_case.param.name;
  }
};

}  // namespace support

#endif
