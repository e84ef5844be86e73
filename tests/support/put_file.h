// Files that tests make.
#ifndef TESTS_SUPPORT_PUT_FILE_H
#define TESTS_SUPPORT_PUT_FILE_H

#include <string>

namespace support {

// Makes a file with this text, and the folders on its way. One that is there is overwritten.
void put(const std::string& path, const std::string& text);

}  // namespace support

#endif
