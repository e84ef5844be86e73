// String: comparing.

#include <rkutils/foundations/string/buffer.h>
#include <rkutils/string.h>
#include <rkutils/text.h>

#include <cstring>

namespace {

using rkutils::text::as_size;

bool is_shared(String const& a, String const& b) { return a.c_str() == b.c_str(); }

// Below, above or 0, as strcmp(). NULL is the empty text, which every other one is above.
int compare(String const& left, char const* right) {
  if (right == nullptr) return left.length() == 0 ? 0 : 1;
  return std::strcmp(left.c_str(), right);
}

}  // namespace

int String::compareTo(String const& t) const {
  return is_shared(*this, t) ? 0 : std::strcmp(t.c_str(), c_str());
}

int String::compareToIgnoreCase(String const& t) const {
  return is_shared(*this, t) ? 0 : stricmp(t.c_str(), c_str());
}

bool String::equals(String const& t) const {
  return is_shared(*this, t) ||
         (length() == t.length() && std::memcmp(c_str(), t.c_str(), as_size(length())) == 0);
}

bool String::equalsIgnoreCase(String const& t) const {
  return is_shared(*this, t) ||
         (length() == t.length() && strnicmp(c_str(), t.c_str(), as_size(length())) == 0);
}

bool String::equals(char const* s) const {
  return s == nullptr ? length() == 0 : std::strcmp(c_str(), s) == 0;
}

bool String::equalsIgnoreCase(char const* s) const {
  return s == nullptr ? length() == 0 : stricmp(c_str(), s) == 0;
}

bool String::startsWith(String const& p) const { return startsWith(p, 0); }

bool String::startsWith(String const& p, long offset) const {
  return offset >= 0 && length() - offset >= p.length() &&
         std::memcmp(c_str() + offset, p.c_str(), as_size(p.length())) == 0;
}

bool String::endsWith(String const& p) const { return startsWith(p, length() - p.length()); }

bool String::regionMatches(long toff, String const& other, long ooff, long len) const {
  return regionMatches(false, toff, other, ooff, len);
}

bool String::regionMatches(bool ignoreCase, long toff, String const& other, long ooff,
                           long len) const {
  if (len < 0 || toff < 0 || ooff < 0 || toff > length() - len || ooff > other.length() - len) {
    return false;
  }
  const auto compare = ignoreCase ? strnicmp : std::strncmp;
  return compare(c_str() + toff, other.c_str() + ooff, as_size(len)) == 0;
}

bool operator==(String const& left, String const& right) {
  return is_shared(left, right) ||
         (left.length() == right.length() && std::strcmp(left.c_str(), right.c_str()) == 0);
}

bool operator==(String const& left, char const* right) { return left.equals(right); }

bool operator==(char const* left, String const& right) { return right.equals(left); }

bool operator==(String const& left, char right) {
  return right == '\0' ? left.length() == 0 : left.length() == 1 && left[0] == right;
}

bool operator==(char left, String const& right) { return right == left; }

bool operator!=(String const& left, String const& right) { return !(left == right); }

bool operator!=(String const& left, char const* right) { return !(left == right); }

bool operator!=(char const* left, String const& right) { return !(left == right); }

bool operator!=(String const& left, char right) { return !(left == right); }

bool operator!=(char left, String const& right) { return !(left == right); }

bool operator<(String const& left, String const& right) {
  return std::strcmp(left.c_str(), right.c_str()) < 0;
}

bool operator<(String const& left, char const* right) { return compare(left, right) < 0; }

bool operator<(char const* left, String const& right) { return compare(right, left) > 0; }

bool operator>(String const& left, String const& right) { return right < left; }

bool operator>(String const& left, char const* right) { return right < left; }

bool operator>(char const* left, String const& right) { return right < left; }

bool operator<=(String const& left, String const& right) { return !(right < left); }

bool operator<=(String const& left, char const* right) { return !(right < left); }

bool operator<=(char const* left, String const& right) { return !(right < left); }

bool operator>=(String const& left, String const& right) { return !(left < right); }

bool operator>=(String const& left, char const* right) { return !(left < right); }

bool operator>=(char const* left, String const& right) { return !(left < right); }
