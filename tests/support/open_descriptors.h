// The descriptors that are open in this process.
#ifndef TESTS_SUPPORT_OPEN_DESCRIPTORS_H
#define TESTS_SUPPORT_OPEN_DESCRIPTORS_H

#include <map>
#include <string>

#include <sys/resource.h>

namespace support {

// Each descriptor with what it refers to, as /proc/self/fd shows it. Two calls give the same when
// nothing was opened or closed between them.
std::map<int, std::string> open_descriptors();

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
