// Copying what is in a file.
#ifndef RKUTILS_FOUNDATIONS_FILE_CONTENTS_H
#define RKUTILS_FOUNDATIONS_FILE_CONTENTS_H

namespace rkutils::file {

// Copies the file `source_name` in one directory to `destination_name` in another, both relative to
// their directories. The destination is created or emptied; `destination_flags` are added when it
// is opened. False when either cannot be opened, or when both are one file, which is left as it is.
// What goes wrong later, such as a full disk, is not reported: the copy ends there.
[[nodiscard]] bool copy_file_at(int source_directory, const char* source_name,
                                int destination_directory, const char* destination_name,
                                int destination_flags);

}  // namespace rkutils::file

#endif
