#include "support/wwanmd/plan.h"

#include <sstream>
#include <stdexcept>

#include "support/wire_text.h"

namespace stand_in {

Plan parse_plan(const std::string& text) {
  Plan plan;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (word == "answer") {
      plan.push_back({Step::Kind::kAnswer, 0, {}});
    } else if (word == "send") {
      plan.push_back({Step::Kind::kSend, 0, support::read_quoted(words)});
    } else if (word == "wait") {
      Step step = {Step::Kind::kWait, 0, {}};
      if (!(words >> step.number)) throw std::invalid_argument("how long?");
      plan.push_back(step);
    } else if (word == "close") {
      plan.push_back({Step::Kind::kClose, 0, {}});
    } else {
      throw std::invalid_argument("no such step: " + word);
    }
  }
  return plan;
}

void Plans::queue(const std::string& command) {
  std::istringstream words(command);
  std::size_t count = 0;
  if (!(words >> count)) throw std::invalid_argument("how often?");
  std::string steps;
  std::getline(words, steps);
  queue_.insert(queue_.end(), count, parse_plan(steps));
}

std::optional<Plan> Plans::next() {
  if (queue_.empty()) return std::nullopt;
  const Plan plan = queue_.front();
  queue_.pop_front();
  return plan;
}

}  // namespace stand_in
