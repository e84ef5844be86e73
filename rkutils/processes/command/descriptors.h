// Closing whatever descriptors there are.
#ifndef RKUTILS_PROCESSES_COMMAND_DESCRIPTORS_H
#define RKUTILS_PROCESSES_COMMAND_DESCRIPTORS_H

namespace rkutils::processes {

// Closes all descriptors from `first` up to the limit of open files. (A program that lowers its
// limit may have some above it; those stay open.) Allocates nothing and takes no lock, so that the
// child of a program with several threads may call it.
void close_descriptors(int first) noexcept;

}  // namespace rkutils::processes

#endif
