// How the stand-in misbehaves, on command.
#ifndef TESTS_SUPPORT_CONFIGD_FAULTS_H
#define TESTS_SUPPORT_CONFIGD_FAULTS_H

#include <deque>
#include <optional>
#include <string>

namespace stand_in {

// What is done to the right reply of one request.
struct Fault {
  enum class Kind {
    kSilence,   // none is sent
    kDelay,     // it is sent `number` milliseconds late
    kReply,     // these bytes are sent instead
    kShorten,   // it loses its last `number` bytes
    kLengthen,  // it gets `number` more bytes
    kAlter,     // its byte at `number` is another
  };

  Kind kind;
  unsigned long number = 0;
  std::string bytes;
};

// The faults to come, one for a request.
class Faults {
 public:
  // Queues what `command` says: "COUNT silence", "COUNT delay MS", "COUNT reply QUOTED", "COUNT
  // shorten N", "COUNT lengthen N", "COUNT alter N". Throws std::invalid_argument for anything
  // else.
  void queue(const std::string& command);

  // The fault of the request that has just come.
  std::optional<Fault> next();

 private:
  std::deque<Fault> queue_;
};

// The reply as the fault makes it; none where nothing is to be sent. Sleeps for a late one.
std::optional<std::string> spoil(std::string reply, const Fault& fault);

}  // namespace stand_in

#endif
