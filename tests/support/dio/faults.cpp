#include "support/dio/faults.h"

#include <sstream>
#include <stdexcept>

namespace stand_in {

void DriverFaults::add(const std::string& command) {
  std::istringstream words(command);
  Fault fault;
  std::string kind;
  std::size_t number = 0;
  words >> fault.operation >> fault.path >> fault.done >> fault.times >> kind >> number;
  if (!words || (kind != "error" && kind != "take")) {
    throw std::invalid_argument("no such fault: " + command);
  }
  if (kind == "error") {
    fault.verdict.error = static_cast<int>(number);
  } else {
    fault.verdict.taken = number;
  }
  faults_.push_back(fault);
}

Verdict DriverFaults::judge(const std::string& operation, const std::string& path) {
  for (Fault& fault : faults_) {
    if (fault.operation != operation || fault.path != path || fault.times == 0) continue;
    if (fault.done > 0) {
      --fault.done;
      continue;
    }
    --fault.times;
    return fault.verdict;
  }
  return {};
}

}  // namespace stand_in
