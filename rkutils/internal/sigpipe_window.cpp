#include <rkutils/internal/sigpipe_window.h>

#include <csignal>

namespace rkutils::internal {

SigpipeWindow::SigpipeWindow() noexcept { std::signal(SIGPIPE, SIG_IGN); }

SigpipeWindow::~SigpipeWindow() {
  if (!leave_ignored_) std::signal(SIGPIPE, SIG_DFL);
}

void SigpipeWindow::leave_ignored() noexcept {
  std::signal(SIGPIPE, SIG_IGN);
  leave_ignored_ = true;
}

}  // namespace rkutils::internal
