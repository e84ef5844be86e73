// The scenarios of each family of functions, as the layers' test programs put them together.
#ifndef TESTS_FAULTS_FAMILIES_H
#define TESTS_FAULTS_FAMILIES_H

#include "scenario.h"

namespace faults {

Scenarios cfread();
Scenarios config_reader();
Scenarios config_daemon_client();
Scenarios configd();
Scenarios events();
Scenarios files();
Scenarios memory();
Scenarios sms();
Scenarios status();
Scenarios strings();
Scenarios system_info();
Scenarios tables();
Scenarios wwanmd();

}  // namespace faults

#endif
