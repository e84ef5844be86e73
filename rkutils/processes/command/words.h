// The words of a command line.
#ifndef RKUTILS_PROCESSES_COMMAND_WORDS_H
#define RKUTILS_PROCESSES_COMMAND_WORDS_H

#include <string_view>

namespace rkutils::processes {

// Walks through the words of a command line. Quotes are simpler than a shell's: one that begins a
// word opens it and the next one of its kind ends it, whatever follows; anywhere else a quote is a
// character like others, and there is no escape character. So each word lies in the line as it is.
//
//     CommandWords words("send 'a text' it's");
//     while (words.next() == CommandWords::Found::kWord) use(words.word());
class CommandWords {
 public:
  explicit CommandWords(const char* line) noexcept : rest_(line) {}

  enum class Found { kWord, kEnd, kUnclosedQuote };
  [[nodiscard]] Found next() noexcept;

  // The word that next() has found, in the line, without its quotes.
  [[nodiscard]] std::string_view word() const noexcept { return word_; }

 private:
  Found take_quoted() noexcept;

  const char* rest_;
  std::string_view word_;
};

}  // namespace rkutils::processes

#endif
