// How a stand-in daemon is told what to do.
#ifndef TESTS_SUPPORT_STAND_IN_CONTROL_H
#define TESTS_SUPPORT_STAND_IN_CONTROL_H

#include <rkutils/internal/unique_fd.h>

#include <functional>
#include <string>

namespace stand_in {

// A connected SOCK_SEQPACKET socket on which commands come, a word and the rest of the text. Each
// is answered with "ok" or what is wrong.
class Control {
 public:
  explicit Control(int descriptor) : socket_(descriptor) {}

  [[nodiscard]] int descriptor() const { return socket_.get(); }

  // Lets `obey` carry out one command; an exception tells what is wrong. False when there is nobody
  // any more to give commands.
  bool serve(const std::function<void(const std::string& word, const std::string& rest)>& obey);

 private:
  rkutils::internal::UniqueFd socket_;
};

}  // namespace stand_in

#endif
