// Going through a scenario with a fault, and seeing what comes of it.
#ifndef TESTS_FAULTS_OBSERVATION_H
#define TESTS_FAULTS_OBSERVATION_H

#include <array>
#include <map>
#include <string>

#include "fault.h"
#include "scenario.h"
#include "support/syslog_collector.h"

namespace faults {

struct Observation {
  // As Run::outcome() has it, with the messages that were logged behind it: "-1; err "cannot
  // bind"". "aborts", "exits with 1" or "ends by signal 9" where the process ended.
  std::string outcome;
  // Whether it came to the fault.
  bool failed = false;
  // What is there now that was not before, or the reverse: descriptors, files, System V objects,
  // memory. Empty as it should be.
  std::string left_behind;
  // How often the action made each kind of call; only where nothing fails.
  std::array<unsigned, kKinds.size()> calls = {};
};

class Observer {
 public:
  explicit Observer(const Scenario& scenario) : scenario_(scenario) {}

  // Goes through it once, for what libraries do once in a process, unless that would spoil it.
  void warm_up();

  Observation with_nothing_failing();
  Observation with(const CallFault& fault);
  Observation with_failing_allocation(unsigned long nth);

 private:
  template <typename Way>
  Observation observe(Way way);

  const Scenario& scenario_;
  support::SyslogCollector log_;
};

}  // namespace faults

#endif
