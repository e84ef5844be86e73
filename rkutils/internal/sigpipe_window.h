// The time during which a socket client has SIGPIPE ignored.
#ifndef RKUTILS_INTERNAL_SIGPIPE_WINDOW_H
#define RKUTILS_INTERNAL_SIGPIPE_WINDOW_H

namespace rkutils::internal {

// Ignores SIGPIPE from construction on and sets it to its default action at the end of the scope:
// to the default, not to what it was, because programs have come to rely on it. The disposition
// belongs to the whole process; a program that keeps SIGPIPE ignored must ignore it again
// afterwards.
class SigpipeWindow {
 public:
  [[nodiscard]] SigpipeWindow() noexcept;
  ~SigpipeWindow();
  SigpipeWindow(const SigpipeWindow&) = delete;
  SigpipeWindow& operator=(const SigpipeWindow&) = delete;

  // For the ways out that leave SIGPIPE ignored: it is, from here on, whatever became of it
  // meanwhile.
  void leave_ignored() noexcept;

 private:
  bool leave_ignored_ = false;
};

}  // namespace rkutils::internal

#endif
