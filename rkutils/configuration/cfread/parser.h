// Reading a configuration file with all that it includes.
#ifndef RKUTILS_CONFIGURATION_CFREAD_PARSER_H
#define RKUTILS_CONFIGURATION_CFREAD_PARSER_H

#include <rkutils/cfread.h>

namespace rkutils::cfread {

// Puts the entries into the table, or passes them to its callback if it has one. False, with a
// message, at the first failure. `table.filename` is of no use afterwards.
[[nodiscard]] bool parse(cfread_table& table, const char* path);

}  // namespace rkutils::cfread

#endif
