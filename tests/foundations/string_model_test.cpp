// String against std::string: random operations on handles that share buffers.

#include <rkutils/string.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

// What a handle should be: handles with the same buffer point to the same one of these.
struct ModelBuffer {
  std::string text;
  long capacity;
};

long capacity_by_rule(std::size_t length) {
  const long n = static_cast<long>(length);
  return n < 128 ? (n + 8) / 16 * 16 + 7 : (n - 64) / 64 * 64 + 127;
}

class Model {
 public:
  explicit Model(unsigned seed) : random_(seed) {}

  void step() {
    const std::size_t target = below(kHandles);
    const std::size_t source = below(kHandles);
    const std::string bytes = random_text();
    const long a = position(target);
    const long b = position(target);
    switch (below(15)) {
      case 0:
        strings_[target] = strings_[source];
        models_[target] = models_[source];
        break;
      case 1:
        strings_[target] = bytes.c_str();
        assign(target, bytes);
        break;
      case 2:
        strings_[target] += bytes.c_str();
        append(target, bytes);
        break;
      case 3:
        strings_[target] += strings_[source];
        append(target, models_[source]->text);
        break;
      case 4:
        strings_[target] += 'c';
        append(target, "c");
        break;
      case 5:
        strings_[target].insert(a, bytes.c_str());
        insert(target, a, bytes);
        break;
      case 6:
        strings_[target].insert(a, strings_[source]);
        insert(target, a, models_[source]->text);
        break;
      case 7:
        strings_[target].deleteRegion(a, b);
        delete_region(target, a, b);
        break;
      case 8:
        strings_[target].deleteRegion(a);
        truncate(target, a);
        break;
      case 9:
        strings_[target].toUpperCase();
        change(target, [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        break;
      case 10:
        strings_[target].replace('b', 'B');
        change(target, [](char c) { return c == 'b' ? 'B' : c; });
        break;
      case 11:
        strings_[target].trim();
        trim(target);
        break;
      case 12:
        strings_[target].format("%s-%d", bytes.c_str(), static_cast<int>(a));
        rewrite(target, bytes + "-" + std::to_string(a));
        break;
      case 13:
        strings_[target].concatf("%5ld|%s", b, bytes.c_str());
        append(target, padded(b) + "|" + bytes);
        break;
      default:
        strings_[target] = String(bytes.c_str(), a);
        models_[target] = std::make_shared<ModelBuffer>(ModelBuffer{
            bytes,
            capacity_by_rule(std::max(bytes.size(), static_cast<std::size_t>(std::max(a, 0L))))});
        break;
    }
    // Texts double now and then; keep them handy.
    if (models_[target]->text.size() > 600) {
      strings_[target] = static_cast<const char*>(nullptr);
      models_[target] = empty_;
    }
  }

  // Every handle, also those that the last step did not name.
  void check() const {
    std::map<const ModelBuffer*, long> handles;
    for (const auto& model : models_) ++handles[model.get()];
    for (std::size_t i = 0; i < kHandles; ++i) {
      const String& string = strings_[i];
      const ModelBuffer& model = *models_[i];
      ASSERT_EQ(std::string(string.c_str(), static_cast<std::size_t>(string.length())), model.text);
      ASSERT_EQ(string.c_str()[string.length()], '\0');
      ASSERT_EQ(string.capacity(), model.capacity);
      if (models_[i] == empty_) {
        ASSERT_EQ(string.c_str(), String::StringBuffer::EMPTY()->chars);
      } else {
        ASSERT_EQ(string.useCount(), handles[&model]);
      }
    }
  }

 private:
  static constexpr std::size_t kHandles = 6;

  std::size_t below(std::size_t bound) { return random_() % bound; }

  std::string random_text() {
    std::string text;
    for (std::size_t length = below(below(8) == 0 ? 150 : 12); length > 0; --length) {
      text += "abB \tz"[below(6)];
    }
    return text;
  }

  // Mostly in the text, sometimes beside it.
  long position(std::size_t target) {
    return static_cast<long>(below(models_[target]->text.size() + 6)) - 3;
  }

  static std::string padded(long number) {
    const std::string text = std::to_string(number);
    return text.size() < 5 ? std::string(5 - text.size(), ' ') + text : text;
  }

  bool is_private(std::size_t i) const {
    return models_[i] != empty_ && std::count(models_.begin(), models_.end(), models_[i]) == 1;
  }

  // A result in place where it is allowed and fits, otherwise in a new buffer by the rule.
  void rewrite(std::size_t i, std::string text) {
    if (is_private(i) && static_cast<long>(text.size()) <= models_[i]->capacity) {
      models_[i]->text = std::move(text);
    } else {
      const long capacity = capacity_by_rule(text.size());
      models_[i] = std::make_shared<ModelBuffer>(ModelBuffer{std::move(text), capacity});
    }
  }

  void assign(std::size_t i, const std::string& text) { rewrite(i, text); }

  void append(std::size_t i, const std::string& text) {
    if (!text.empty()) rewrite(i, models_[i]->text + text);
  }

  void insert(std::size_t i, long at, const std::string& text) {
    std::string result = models_[i]->text;
    if (text.empty() || at < 0 || at > static_cast<long>(result.size())) return;
    rewrite(i, result.insert(static_cast<std::size_t>(at), text));
  }

  void delete_region(std::size_t i, long from, long to) {
    std::string result = models_[i]->text;
    from = std::max(from, 0L);
    to = std::min(to, static_cast<long>(result.size()));
    if (from >= to) return;
    rewrite(i, result.erase(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from)));
  }

  void truncate(std::size_t i, long from) {
    const std::string& text = models_[i]->text;
    if (from >= static_cast<long>(text.size()) || text.empty()) return;
    rewrite(i, text.substr(0, static_cast<std::size_t>(std::max(from, 0L))));
  }

  template <typename Change>
  void change(std::size_t i, Change change) {
    if (models_[i]->text.empty()) return;
    if (!is_private(i)) models_[i] = std::make_shared<ModelBuffer>(*models_[i]);
    std::string& text = models_[i]->text;
    std::transform(text.begin(), text.end(), text.begin(), change);
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

  std::mt19937 random_;
  std::shared_ptr<ModelBuffer> empty_ = std::make_shared<ModelBuffer>(ModelBuffer{"", 0});
  std::array<String, kHandles> strings_;
  std::array<std::shared_ptr<ModelBuffer>, kHandles> models_ = {empty_, empty_, empty_,
                                                                empty_, empty_, empty_};
};

// A million in all, in parts that run side by side.
class StringModel : public testing::TestWithParam<unsigned> {};

TEST_P(StringModel, AgreesAfterEveryOperation) {
  constexpr int kOperations = 250000;
  Model model(GetParam());
  for (int i = 0; i < kOperations; ++i) {
    model.step();
    model.check();
    if (HasFatalFailure()) FAIL() << "after " << i + 1 << " operations";
  }
}

INSTANTIATE_TEST_SUITE_P(Seed, StringModel, testing::Values(1U, 2U, 3U, 4U));

}  // namespace
