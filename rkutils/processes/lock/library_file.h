// A file that all who use the library have.
#ifndef RKUTILS_PROCESSES_LOCK_LIBRARY_FILE_H
#define RKUTILS_PROCESSES_LOCK_LIBRARY_FILE_H

namespace rkutils::processes {

// The library itself, as it is installed.
constexpr const char* kLibraryFile = "/usr/lib/librkutils.so.1.0.0";

}  // namespace rkutils::processes

#endif
