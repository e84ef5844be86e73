// Threads that others cancel.
#ifndef RKUTILS_INTERNAL_POSTPONED_CANCELLATION_H
#define RKUTILS_INTERNAL_POSTPONED_CANCELLATION_H

#include <pthread.h>

namespace rkutils::internal {

// Lets requests to cancel this thread wait until the end of its scope. What is done here cannot be
// left half-way: a child has to be waited for, shared memory removed, a descriptor closed.
class PostponedCancellation {
 public:
  [[nodiscard]] PostponedCancellation() noexcept {
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_);
  }
  ~PostponedCancellation() { ::pthread_setcancelstate(before_, nullptr); }
  PostponedCancellation(const PostponedCancellation&) = delete;
  PostponedCancellation& operator=(const PostponedCancellation&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace rkutils::internal

#endif
