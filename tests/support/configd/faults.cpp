#include "support/configd/faults.h"

#include <chrono>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "support/wire_text.h"

namespace stand_in {
namespace {

Fault parse(const std::string& kind, const std::string& argument) {
  static const std::map<std::string, Fault::Kind> kNumbered = {
      {"delay", Fault::Kind::kDelay},
      {"shorten", Fault::Kind::kShorten},
      {"lengthen", Fault::Kind::kLengthen},
      {"alter", Fault::Kind::kAlter},
  };
  if (kind == "silence") return {Fault::Kind::kSilence, 0, {}};
  if (kind == "reply") return {Fault::Kind::kReply, 0, support::unquote(argument)};
  const auto numbered = kNumbered.find(kind);
  if (numbered == kNumbered.end()) throw std::invalid_argument("no such fault: " + kind);
  return {numbered->second, std::stoul(argument), {}};
}

}  // namespace

void Faults::queue(const std::string& command) {
  std::istringstream words(command);
  std::size_t count = 0;
  std::string kind;
  std::string argument;
  words >> count >> kind;
  std::getline(words >> std::ws, argument);
  queue_.insert(queue_.end(), count, parse(kind, argument));
}

std::optional<Fault> Faults::next() {
  if (queue_.empty()) return std::nullopt;
  const Fault fault = queue_.front();
  queue_.pop_front();
  return fault;
}

std::optional<std::string> spoil(std::string reply, const Fault& fault) {
  switch (fault.kind) {
    case Fault::Kind::kSilence:
      return std::nullopt;
    case Fault::Kind::kDelay:
      std::this_thread::sleep_for(std::chrono::milliseconds(fault.number));
      return reply;
    case Fault::Kind::kReply:
      return fault.bytes;
    case Fault::Kind::kShorten:
      return reply.substr(0, reply.size() - fault.number);
    case Fault::Kind::kLengthen:
      return reply + std::string(fault.number, 'x');
    case Fault::Kind::kAlter:
      reply.at(fault.number) = reply.at(fault.number) == 'x' ? 'y' : 'x';
      return reply;
  }
  return reply;
}

}  // namespace stand_in
