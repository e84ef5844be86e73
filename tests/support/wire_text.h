// Bytes as a person reads them: "?lan.address\n\0", and back again without loss.
#ifndef TESTS_SUPPORT_WIRE_TEXT_H
#define TESTS_SUPPORT_WIRE_TEXT_H

#include <istream>
#include <string>
#include <string_view>

namespace support {

// The bytes in double quotes: printable ASCII as it is, \n \t \r \0 \" \\ for these, \xHH for the
// rest.
std::string quote(std::string_view bytes);

// The bytes of such a text. Throws std::invalid_argument for anything that quote() does not
// produce.
std::string unquote(std::string_view text);

// Reads such a text, with white space before it, and gives its bytes. Throws as unquote() does.
std::string read_quoted(std::istream& text);

}  // namespace support

#endif
