// Messages in the spool, and the names that programs ask for.

#include <rkutils/simple_sms.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

constexpr char kId[] = "message";

std::vector<std::string> words_of(std::string_view line) {
  std::vector<std::string> words;
  while (!line.empty()) {
    const std::string_view word = line.substr(0, line.find(' '));
    if (!word.empty()) words.emplace_back(word);
    line.remove_prefix(std::min(word.size() + 1, line.size()));
  }
  return words;
}

void take_line(std::string_view line, CSimpleSMS& sms) {
  const std::vector<std::string> words = words_of(line);
  if (words.empty() || (words[0] != "From:" && words[0] != "Received:")) return;
  std::string& field = words[0] == "From:" ? sms.address : sms.received;
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (!field.empty()) field += ' ';
    field += words[i];
  }
}

void check_message(const std::string& contents) {
  const std::unique_ptr<CSimpleSMS> sms(CSimpleSMS::getIncomingSMSById(kId));
  const std::size_t end = contents.find("\n\n");
  expect_equal(sms != nullptr, end != std::string::npos, "whether it is a message");
  if (sms == nullptr) return;
  CSimpleSMS expected;
  std::string_view header = std::string_view(contents).substr(0, end);
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find('\n'));
    take_line(line, expected);
    header.remove_prefix(std::min(line.size() + 1, header.size()));
  }
  expect_equal(sms->address, expected.address, "the address");
  expect_equal(sms->received, expected.received, "the time");
  expect_equal(sms->text, contents.substr(end + 2), "the text");
}

// There is one message, and no name leads to anything else.
void check_name(const std::string& name) {
  if (name == kId) return;
  expect(CSimpleSMS::getIncomingSMSById(name) == nullptr, "there is no other message");
  expect_equal(CSimpleSMS::DeleteIncomingSMSById(name), -1, "the result of deleting it");
  std::vector<std::pair<long, std::string>> ids;
  CSimpleSMS::RetrieveIncomingIds(ids);
  expect_equal(ids.size(), std::size_t{1}, "the number of messages");
  expect_equal(ids[0].second, std::string(kId), "the name of the message");
}

}  // namespace

// A name in the first line, and the message.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::InputFile file(std::string("/var/spool/sms/incoming/") + kId);
  Input input(data, size);
  const std::string name = input.until('\n');
  const std::string contents = input.rest();
  file.put(contents);
  const fuzz::NothingLeftOpen nothing_left_open;
  check_message(contents);
  check_name(name);
  return 0;
}
