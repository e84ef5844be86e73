#include <rkutils/messaging/sms_header.h>

#include <boost/token_functions.hpp>
#include <boost/token_iterator.hpp>
#include <string>

namespace rkutils::sms {
namespace {

using Separator = boost::char_separator<char>;
using Words = boost::token_iterator<Separator, std::string_view::const_iterator, std::string>;

std::string* field_of(const std::string& keyword, CSimpleSMS& sms) {
  if (keyword == "From:") return &sms.address;
  if (keyword == "Received:") return &sms.received;
  return nullptr;
}

void append_word(const std::string& word, std::string& field) {
  if (!field.empty()) field += ' ';
  field += word;
}

}  // namespace

bool take_header_line(std::string_view line, CSimpleSMS& sms) {
  Words word(Separator(" "), line.begin(), line.end());
  if (word.at_end()) return false;
  std::string* const field = field_of(*word, sms);
  ++word;
  if (field == nullptr || word.at_end()) return false;
  for (; !word.at_end(); ++word) append_word(*word, *field);
  return true;
}

}  // namespace rkutils::sms
