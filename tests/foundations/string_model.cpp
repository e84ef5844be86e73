#include "foundations/string_model.h"

#include <rkutils/string.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace string_model {
namespace {

// What a handle should be: handles with the same buffer point to the same one of these.
struct ModelBuffer {
  std::string text;
  long capacity;
};

long capacity_by_rule(long n) { return n < 128 ? (n + 8) / 16 * 16 + 7 : (n - 64) / 64 * 64 + 127; }

long size_of(const std::string& text) { return static_cast<long>(text.size()); }

// What the C library sees of a text from a position on: the characters before the next NUL.
std::string seen(const std::string& text, long from = 0) { return text.c_str() + from; }

char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

int sign(int number) { return number < 0 ? -1 : number > 0 ? 1 : 0; }

// The sign of the comparison of `length` characters at most, which ends at a NUL in both.
template <typename Map>
int compare(const char* a, const char* b, long length, Map map) {
  for (; length > 0; --length, ++a, ++b) {
    const int left = static_cast<unsigned char>(map(*a));
    const int right = static_cast<unsigned char>(map(*b));
    if (left != right) return left < right ? -1 : 1;
    if (left == 0) break;
  }
  return 0;
}

char as_it_is(char c) { return c; }

// Searching and comparing, spelled out.

long first_index(const std::string& text, char c, long from) {
  if (c == '\0' || from >= size_of(text)) return -1;
  from = std::max(from, 0L);
  const std::size_t found = seen(text, from).find(c);
  return found == std::string::npos ? -1 : from + static_cast<long>(found);
}

long first_index(const std::string& text, const std::string& needle) {
  const std::size_t found = seen(text).find(seen(needle));
  return found == std::string::npos ? -1 : static_cast<long>(found);
}

long first_index(const std::string& text, const std::string& needle, long from) {
  if (size_of(text) - size_of(needle) < from) return -1;
  from = std::max(from, 0L);
  const std::size_t found = seen(text, from).find(seen(needle));
  return found == std::string::npos ? -1 : from + static_cast<long>(found);
}

long first_index_ignoring_case(const std::string& text, const std::string& needle, long from) {
  for (long at = std::max(from, 0L); at <= size_of(text) - size_of(needle); ++at) {
    if (compare(text.c_str() + at, needle.c_str(), size_of(needle), fold) == 0) return at;
  }
  return -1;
}

long last_index(const std::string& text, char c, long from) {
  for (long at = std::min(from, size_of(text) - 1); at >= 0; --at) {
    if (text[static_cast<std::size_t>(at)] == c) return at;
  }
  return -1;
}

long last_index(const std::string& text, const std::string& needle, long from) {
  if (from < 0) return -1;
  const long start = std::min(from, size_of(text) - size_of(needle));
  if (start < 0) return start;
  for (long at = start; at >= 0; --at) {
    if (seen(text, at).find(seen(needle)) == 0) return at;
  }
  return -1;
}

long last_index_ignoring_case(const std::string& text, const std::string& needle, long from) {
  if (from < 0) return -1;
  const long start = std::min(from, size_of(text) - size_of(needle));
  if (start < 0) return start;
  for (long at = start; at >= 0; --at) {
    if (compare(text.c_str() + at, needle.c_str(), size_of(needle), fold) == 0) return at;
  }
  return -1;
}

bool region_matches(bool ignore_case, const std::string& a, long a_offset, const std::string& b,
                    long b_offset, long length) {
  if (length < 0 || a_offset < 0 || b_offset < 0 || a_offset + length > size_of(a) ||
      b_offset + length > size_of(b)) {
    return false;
  }
  return compare(a.c_str() + a_offset, b.c_str() + b_offset, length,
                 ignore_case ? fold : as_it_is) == 0;
}

std::string text_of(String const& s) {
  return std::string(s.c_str(), static_cast<std::size_t>(s.length()));
}

// What the library gives, what it should give, and what was asked for.
template <typename Actual, typename Expected>
void same(const Actual& actual, const Expected& expected, const char* what) {
  if (!(actual == expected)) throw std::runtime_error(std::string("wrong: ") + what);
}

}  // namespace

class Model::State {
 public:
  explicit State(support::Choices choices) : below_(std::move(choices)) {}

  // Changes one handle.
  void change() {
    const std::size_t target = below(kHandles);
    String& string = strings_[target];
    const std::size_t source = below(kHandles);
    const std::string& other = models_[source]->text;
    const std::string bytes = random_text();
    const std::string text = seen(bytes);
    const char c = random_character();
    const long a = position(target);
    const long b = position(target);
    switch (below(22)) {
      case 0:
        string = strings_[source];
        models_[target] = models_[source];
        break;
      case 1:
        string = bytes.c_str();
        rewrite(target, text);
        break;
      case 2:
        string = c;
        models_[target] = c == '\0' ? empty_ : new_buffer(std::string(1, c), 7);
        break;
      case 3:
        string += bytes.c_str();
        append(target, text);
        break;
      case 4:
        string += strings_[source];
        append(target, other);
        break;
      case 5:
        string += c;
        append(target, seen(std::string(1, c)));
        break;
      case 6: {
        const long count = static_cast<long>(below(bytes.size() + 3)) - 2;
        if (count > size_of(bytes)) break;
        string.concat(bytes.data(), count);
        append(target, bytes.substr(0, static_cast<std::size_t>(std::max(count, 0L))));
        break;
      }
      case 7:
        string.insert(a, bytes.c_str());
        insert(target, a, text);
        break;
      case 8:
        string.insert(a, strings_[source]);
        insert(target, a, other);
        break;
      case 9:
        string.insert(a, c);
        insert(target, a, seen(std::string(1, c)));
        break;
      case 10:
        string.deleteRegion(a, b);
        delete_region(target, a, b);
        break;
      case 11:
        string.deleteRegion(a);
        truncate(target, a);
        break;
      case 12:
        string.toUpperCase();
        map(target, [](char x) { return x >= 'a' && x <= 'z' ? static_cast<char>(x - 32) : x; });
        break;
      case 13:
        string.toLowerCase();
        map(target, fold);
        break;
      case 14: {
        const char to = random_character();
        string.replace(c, to);
        if (to != '\0') map(target, [=](char x) { return x == c ? to : x; });
        break;
      }
      case 15:
        string.trim();
        trim(target);
        break;
      case 16:
        string.format("%s-%d", bytes.c_str(), static_cast<int>(a));
        rewrite(target, text + "-" + std::to_string(a));
        break;
      case 17:
        string.concatf("%5ld|%s", b, bytes.c_str());
        append(target, padded(b) + "|" + text);
        break;
      case 18:
        string = String(bytes.c_str(), a);
        models_[target] = new_buffer(text, capacity_by_rule(std::max(size_of(text), a)));
        break;
      default:
        change_by_own_text(target, a, b);
        break;
    }
    // Texts double now and then; keep them handy.
    if (models_[target]->text.size() > 600) {
      string = static_cast<const char*>(nullptr);
      models_[target] = empty_;
    }
  }

  // Asks one handle something.
  void ask() {
    const std::size_t i = below(kHandles);
    const std::size_t j = below(kHandles);
    const String& string = strings_[i];
    const std::string& text = models_[i]->text;
    // Something that is often found, or another handle.
    const std::string bytes = one_in(2) ? part_of(text) : random_text();
    String needle;
    needle.concat(bytes.data(), size_of(bytes));
    const bool whole = one_in(4);
    if (whole) needle = strings_[j];
    const std::string& other = whole ? models_[j]->text : bytes;
    const bool shared = string.c_str() == needle.c_str();
    const char c = random_character();
    const long a = position(i);
    const long b = position(i);
    switch (below(10)) {
      case 0:
        same(string.indexOf(c), first_index(text, c, 0), "string.indexOf(c)");
        same(string.indexOf(c, a), first_index(text, c, a), "string.indexOf(c, a)");
        break;
      case 1:
        same(string.indexOf(needle), first_index(text, other), "string.indexOf(needle)");
        same(string.indexOf(needle, a), first_index(text, other, a), "string.indexOf(needle, a)");
        break;
      case 2:
        same(string.indexOfIgnoreCase(needle), first_index_ignoring_case(text, other, 0),
             "string.indexOfIgnoreCase(needle)");
        same(string.indexOfIgnoreCase(needle, a), first_index_ignoring_case(text, other, a),
             "string.indexOfIgnoreCase(needle, a)");
        break;
      case 3:
        same(string.lastIndexOf(c), last_index(text, c, size_of(text)), "string.lastIndexOf(c)");
        same(string.lastIndexOf(c, a), last_index(text, c, a), "string.lastIndexOf(c, a)");
        break;
      case 4:
        same(string.lastIndexOf(needle), last_index(text, other, size_of(text)),
             "string.lastIndexOf(needle)");
        same(string.lastIndexOf(needle, a), last_index(text, other, a),
             "string.lastIndexOf(needle, a)");
        break;
      case 5:
        same(string.lastIndexOfIgnoreCase(needle),
             last_index_ignoring_case(text, other, size_of(text)),
             "string.lastIndexOfIgnoreCase(needle)");
        same(string.lastIndexOfIgnoreCase(needle, a), last_index_ignoring_case(text, other, a),
             "string.lastIndexOfIgnoreCase(needle, a)");
        break;
      case 6:
        ask_for_order(string, text, needle, other, shared);
        break;
      case 7:
        ask_for_equality(string, text, needle, other, shared);
        break;
      case 8: {
        const long length = static_cast<long>(below(8)) - 1;
        const bool ignore_case = one_in(2);
        same(string.regionMatches(ignore_case, a, needle, b, length),
             region_matches(ignore_case, text, a, other, b, length),
             "string.regionMatches(ignore_case, a, needle, b, length)");
        same(string.startsWith(needle, a),
             a >= 0 && size_of(text) - a >= size_of(other) &&
                 text.compare(static_cast<std::size_t>(a), other.size(), other) == 0,
             "string.startsWith(needle, a)");
        break;
      }
      default:
        ask_for_parts(string, text, a, b);
        break;
    }
  }

  // Every handle, also those that the last change did not name.
  void check() const {
    for (std::size_t i = 0; i < kHandles; ++i) {
      const String& string = strings_[i];
      const ModelBuffer& model = *models_[i];
      same(string.length(), size_of(model.text), "string.length()");
      // The NUL at the end included.
      same(std::memcmp(string.c_str(), model.text.c_str(), model.text.size() + 1), 0, "the text");
      same(string.capacity(), model.capacity, "string.capacity()");
      if (models_[i] == empty_) {
        same(string.c_str(), String::StringBuffer::EMPTY()->chars, "string.c_str()");
      } else {
        same(string.useCount(), std::count(models_.begin(), models_.end(), models_[i]),
             "string.useCount()");
      }
    }
  }

 private:
  static constexpr std::size_t kHandles = 6;

  std::size_t below(std::size_t bound) { return below_(bound); }
  bool one_in(std::size_t odds) { return below(odds) == 0; }

  // NULs and bytes beyond ASCII are rare.
  char random_character() {
    return one_in(8) ? "\0\x80\xe4\xc4\xff"[below(5)] : "abBA \tz"[below(7)];
  }

  std::string random_text() {
    std::string text;
    for (std::size_t length = below(one_in(8) ? 150 : 12); length > 0; --length) {
      text += random_character();
    }
    return text;
  }

  std::string part_of(const std::string& text) {
    const std::size_t from = below(text.size() + 1);
    std::string part = text.substr(from, below(5));
    if (!part.empty() && one_in(4)) part[0] = fold(part[0]);
    return part;
  }

  // Mostly in the text, sometimes beside it.
  long position(std::size_t target) {
    return static_cast<long>(below(models_[target]->text.size() + 6)) - 3;
  }

  static std::string padded(long number) {
    const std::string text = std::to_string(number);
    return text.size() < 5 ? std::string(5 - text.size(), ' ') + text : text;
  }

  static std::shared_ptr<ModelBuffer> new_buffer(std::string text, long capacity) {
    return std::make_shared<ModelBuffer>(ModelBuffer{std::move(text), capacity});
  }

  bool is_private(std::size_t i) const {
    return models_[i] != empty_ && std::count(models_.begin(), models_.end(), models_[i]) == 1;
  }

  // A result in place where it is allowed and fits, otherwise in a new buffer by the rule.
  void rewrite(std::size_t i, std::string text) {
    if (is_private(i) && size_of(text) <= models_[i]->capacity) {
      models_[i]->text = std::move(text);
    } else {
      const long capacity = capacity_by_rule(size_of(text));
      models_[i] = new_buffer(std::move(text), capacity);
    }
  }

  void append(std::size_t i, const std::string& text) {
    if (!text.empty()) rewrite(i, models_[i]->text + text);
  }

  void insert(std::size_t i, long at, const std::string& text) {
    std::string result = models_[i]->text;
    if (text.empty() || at < 0 || at > size_of(result)) return;
    rewrite(i, result.insert(static_cast<std::size_t>(at), text));
  }

  void delete_region(std::size_t i, long from, long to) {
    std::string result = models_[i]->text;
    from = std::max(from, 0L);
    to = std::min(to, size_of(result));
    if (from >= to) return;
    rewrite(i, result.erase(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from)));
  }

  void truncate(std::size_t i, long from) {
    const std::string& text = models_[i]->text;
    if (from >= size_of(text) || text.empty()) return;
    rewrite(i, text.substr(0, static_cast<std::size_t>(std::max(from, 0L))));
  }

  template <typename Mapping>
  void map(std::size_t i, Mapping mapping) {
    if (models_[i]->text.empty()) return;
    if (!is_private(i)) models_[i] = std::make_shared<ModelBuffer>(*models_[i]);
    std::string& text = models_[i]->text;
    std::transform(text.begin(), text.end(), text.begin(), mapping);
  }

  void trim(std::size_t i) {
    const std::string& text = models_[i]->text;
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
      models_[i] = empty_;
      return;
    }
    const std::string kept = text.substr(first, text.find_last_not_of(" \t") - first + 1);
    if (kept.size() != text.size()) rewrite(i, kept);
  }

  void change_by_own_text(std::size_t i, long at, long from) {
    from = std::clamp(from, 0L, size_of(models_[i]->text));
    const std::string text = seen(models_[i]->text, from);
    const char* const own = strings_[i].c_str() + from;
    if (one_in(3)) {
      strings_[i] = own;
      rewrite(i, text);
    } else if (one_in(2)) {
      strings_[i] += own;
      append(i, text);
    } else {
      strings_[i].insert(at, own);
      insert(i, at, text);
    }
  }

  static void ask_for_order(String const& string, const std::string& text, String const& other,
                            const std::string& expected, bool shared) {
    const int order = shared ? 0 : sign(seen(text).compare(seen(expected)));
    same(sign(string.compareTo(other)), -order, "sign(string.compareTo(other))");
    same(string.compareToIgnoreCase(other),
         shared ? 0 : -compare(text.c_str(), expected.c_str(), LONG_MAX, fold),
         "string.compareToIgnoreCase(other)");
    same(string < other, order < 0, "string < other");
    same(string > other, order > 0, "string > other");
    same(string <= other, order <= 0, "string <= other");
    same(string >= other, order >= 0, "string >= other");
    same(string < other.c_str(), order < 0, "string < other.c_str()");
    same(other.c_str() < string, order > 0, "other.c_str() < string");
    same(string >= other.c_str(), order >= 0, "string >= other.c_str()");
    same(other.c_str() >= string, order <= 0, "other.c_str() >= string");
  }

  static void ask_for_equality(String const& string, const std::string& text, String const& other,
                               const std::string& expected, bool shared) {
    const bool as_long = text.size() == expected.size();
    const bool folded = compare(text.c_str(), expected.c_str(),
                                std::max(size_of(text), size_of(expected)) + 1, fold) == 0;
    same(string.equals(other), text == expected, "string.equals(other)");
    same(string.equals(other.c_str()), seen(text) == seen(expected),
         "string.equals(other.c_str())");
    same(string.equalsIgnoreCase(other), shared || (as_long && folded),
         "string.equalsIgnoreCase(other)");
    same(string.equalsIgnoreCase(other.c_str()), folded, "string.equalsIgnoreCase(other.c_str())");
    same(string == other, as_long && seen(text) == seen(expected), "string == other");
    same(string != other, !(as_long && seen(text) == seen(expected)), "string != other");
    same(string.startsWith(other), text.compare(0, expected.size(), expected) == 0,
         "string.startsWith(other)");
    same(string.endsWith(other),
         text.size() >= expected.size() &&
             text.compare(text.size() - expected.size(), expected.size(), expected) == 0,
         "string.endsWith(other)");
  }

  static void ask_for_parts(String const& string, const std::string& text, long a, long b) {
    const bool inside = a >= 0 && a < size_of(text);
    same(text_of(string.substring(a)),
         inside ? text.substr(static_cast<std::size_t>(a)) : std::string(),
         "text_of(string.substring(a))");
    const std::string visible = seen(text);
    const long from = std::min(std::max(a, 0L), size_of(visible));
    same(text_of(string.substring(a, b)),
         a < b && a < size_of(text)
             ? visible.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(b - a))
             : std::string(),
         "text_of(string.substring(a, b))");
    same(string[a], inside ? text[static_cast<std::size_t>(a)] : '\0', "string[a]");
    const long begin = std::clamp(a, 0L, size_of(text));
    const long end = std::clamp(b, begin, size_of(text));
    std::string copied(text.size() + 1, '#');
    string.getChars(a, b, copied.data());
    same(copied.substr(0, static_cast<std::size_t>(end - begin)),
         text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin)),
         "copied.substr(0, static_cast<std::size_t>(end - begin))");
    same(copied[static_cast<std::size_t>(end - begin)], '#',
         "copied[static_cast<std::size_t>(end - begin)]");
  }

  support::Choices below_;
  std::shared_ptr<ModelBuffer> empty_ = new_buffer("", 0);
  std::array<String, kHandles> strings_;
  std::array<std::shared_ptr<ModelBuffer>, kHandles> models_ = {empty_, empty_, empty_,
                                                                empty_, empty_, empty_};
};

Model::Model(support::Choices choices) : state_(std::make_unique<State>(std::move(choices))) {}

Model::~Model() = default;

void Model::change() { state_->change(); }

void Model::ask() { state_->ask(); }

void Model::check() const { state_->check(); }

}  // namespace string_model
