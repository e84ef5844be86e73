// The scenarios of each family of functions, as the layers' test programs put them together.
#ifndef TESTS_FAULTS_FAMILIES_H
#define TESTS_FAULTS_FAMILIES_H

#include "scenario.h"

namespace faults {

Scenarios addresses();
Scenarios analogue_inputs();
Scenarios cfread();
Scenarios commands();
Scenarios config_reader();
Scenarios config_daemon_client();
Scenarios configd();
Scenarios events();
Scenarios files();
Scenarios inputs_and_outputs();
Scenarios interfaces();
Scenarios locks();
Scenarios memory();
Scenarios persistent_log();
Scenarios pings();
Scenarios plug_ins();
Scenarios process_table();
Scenarios routes();
Scenarios sms();
Scenarios status();
Scenarios storage_media();
Scenarios strings();
Scenarios system_info();
Scenarios tables();
Scenarios wwanmd();

}  // namespace faults

#endif
