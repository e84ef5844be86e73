#include "support/stand_in/control.h"

#include <cstddef>
#include <exception>
#include <vector>

#include <sys/socket.h>

namespace stand_in {

bool Control::serve(
    const std::function<void(const std::string& word, const std::string& rest)>& obey) {
  std::vector<char> buffer(65536);
  const ssize_t length = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
  if (length <= 0) return false;
  const std::string command(buffer.data(), static_cast<std::size_t>(length));
  const std::size_t space = command.find(' ');
  std::string outcome = "ok";
  try {
    obey(command.substr(0, space), space == std::string::npos ? "" : command.substr(space + 1));
  } catch (const std::exception& error) {
    outcome = error.what();
  }
  return ::send(socket_.get(), outcome.data(), outcome.size(), MSG_NOSIGNAL) > 0;
}

}  // namespace stand_in
