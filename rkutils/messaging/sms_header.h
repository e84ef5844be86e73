// Header lines of messages in the spool.
#ifndef RKUTILS_MESSAGING_SMS_HEADER_H
#define RKUTILS_MESSAGING_SMS_HEADER_H

#include <rkutils/simple_sms.h>

#include <string_view>

namespace rkutils::sms {

// Adds what a line says to the message. False when it says nothing that a message has a field for;
// nothing has changed then.
[[nodiscard]] bool take_header_line(std::string_view line, CSimpleSMS& sms);

}  // namespace rkutils::sms

#endif
