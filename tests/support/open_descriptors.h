// The descriptors that are open in this process.
#ifndef TESTS_SUPPORT_OPEN_DESCRIPTORS_H
#define TESTS_SUPPORT_OPEN_DESCRIPTORS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "support/failing_calls.h"

namespace support {

// Each descriptor with what it refers to, as /proc/self/fd shows it. Two calls give the same when
// nothing was opened or closed between them.
std::map<int, std::string> open_descriptors();

// Calls `action` on a thread of its own, and returns the flags (fcntl(2), F_GETFD) of the
// descriptors that these system calls are made for meanwhile.
std::vector<int> descriptor_flags_at(SystemCall call, const std::function<void()>& action);

// Lets no more descriptors be open at once than are already, or that and `spare` more, from
// construction to destruction.
class NoMoreDescriptors {
 public:
  explicit NoMoreDescriptors(unsigned spare = 0);
  ~NoMoreDescriptors();
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlim_t previous_;
};

}  // namespace support

#endif
