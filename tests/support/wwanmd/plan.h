// What the stand-in for the modem daemon does on one occasion.
#ifndef TESTS_SUPPORT_WWANMD_PLAN_H
#define TESTS_SUPPORT_WWANMD_PLAN_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace stand_in {

struct Step {
  enum class Kind {
    kAnswer,  // send the right reply
    kSend,    // send these bytes
    kWait,    // do nothing for `number` milliseconds
    kClose,   // close the connection
  };

  Kind kind;
  unsigned long number = 0;
  std::string bytes;
};

// Done one after the other. Without steps: silence.
using Plan = std::vector<Step>;

// Reads steps: "answer", "send "BYTES"", "wait MS", "close", in any order and number. Throws
// std::invalid_argument for anything else.
Plan parse_plan(const std::string& text);

// The plans to come, one for an occasion.
class Plans {
 public:
  // Queues what `command` says: "COUNT STEPS".
  void queue(const std::string& command);

  // The plan for the occasion that has just come; none when all is to go its usual way.
  std::optional<Plan> next();

 private:
  std::deque<Plan> queue_;
};

}  // namespace stand_in

#endif
