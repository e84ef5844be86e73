#include "support/stand_in_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/private_router.h"

namespace support {

using rkutils::internal::UniqueFd;

void StandInProcess::start(const std::string& program, const std::vector<std::string>& arguments,
                           int inherited) {
  std::array<int, 2> ends = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  control_.reset(ends[0]);
  UniqueFd theirs(ends[1]);
  const std::string path = built_program(program);
  const std::string control = std::to_string(theirs.get());
  std::vector<const char*> words = {path.c_str(), "--control", control.c_str()};
  for (const std::string& argument : arguments) words.push_back(argument.c_str());
  words.push_back(nullptr);

  id_ = ::fork();
  if (id_ == 0) {
    ::fcntl(theirs.get(), F_SETFD, 0);
    if (inherited >= 0) ::fcntl(inherited, F_SETFD, 0);
    ::execv(words[0], const_cast<char**>(words.data()));
    std::_Exit(EXIT_FAILURE);
  }
  theirs.reset();
  const std::string outcome = receive_outcome();
  if (outcome == "ready") return;
  kill();
  const std::string refused = "refused: ";
  if (outcome.compare(0, refused.size(), refused) == 0) {
    throw StandInRefused(program + ": " + outcome);
  }
  throw std::runtime_error("the stand-in does not start");
}

void StandInProcess::kill() {
  if (id_ <= 0) return;
  ::kill(id_, SIGKILL);
  ::waitpid(id_, nullptr, 0);
  id_ = -1;
  control_.reset();
}

void StandInProcess::command(const std::string& text) {
  if (::send(control_.get(), text.data(), text.size(), MSG_NOSIGNAL) < 0) {
    throw std::system_error(errno, std::generic_category(), "stand-in's control socket");
  }
  const std::string outcome = receive_outcome();
  if (outcome != "ok") throw std::runtime_error(text + ": " + outcome);
}

std::string StandInProcess::receive_outcome() {
  std::array<char, 256> buffer;
  ssize_t length = 0;
  do {
    length = ::recv(control_.get(), buffer.data(), buffer.size(), 0);
  } while (length < 0 && errno == EINTR);
  return std::string(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

}  // namespace support
