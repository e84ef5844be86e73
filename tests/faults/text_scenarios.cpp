// Texts, tables, and memory.

#include <rkutils/hash_table.h>
#include <rkutils/memory.h>
#include <rkutils/string.h>

#include <cstdlib>
#include <memory>
#include <optional>

#include "families.h"

namespace faults {
namespace {

// Longer than the room that a text of its own length leaves.
constexpr const char* kLongText = "a text that is longer than any room that the others have";

// A text that shares its buffer with another, and one that has its own.
struct Texts {
  std::string after() const {
    return text_of(shared.c_str()) + ", " + text_of(own.c_str()) +
           (result ? ", " + text_of(result->c_str()) : "");
  }

  String shared{"Shared"};
  const String with{shared};
  String own{"Own"};
  const String tail{kLongText};
  std::optional<String> result;
};

// A String ends the process where memory runs out, so each run has its own.
template <typename Act>
Scenario of_string(const std::string& name, Act act) {
  return in(Process::kOwn, scenario<Texts>("String::" + name, [act](Texts& texts) {
              act(texts);
              return Word{"done"};
            }));
}

struct Tables {
  std::string after() const {
    return texts     ? std::to_string(texts->getNumberOfKeys()) + " keys"
           : numbers ? std::to_string(numbers->getNumberOfKeys()) + " keys"
                     : "no table";
  }

  std::unique_ptr<INStringHashTable> texts;
  std::unique_ptr<INUInt32HashTable> numbers;
  // In which a table is made without allocating itself.
  std::optional<INStringHashTable> made_texts;
  std::optional<INUInt32HashTable> made_numbers;
};

std::string made_tables(const Tables& tables) {
  return tables.made_texts || tables.made_numbers ? "made" : "not made";
}

void make_texts(Tables& tables) {
  tables.texts = std::make_unique<INStringHashTable>(2);
  tables.texts->addEntry("one", nullptr);
}

void make_numbers(Tables& tables) {
  tables.numbers = std::make_unique<INUInt32HashTable>(2);
  tables.numbers->addEntry(1, nullptr);
}

struct Memory {
  static std::string after() { return {}; }
  ~Memory() { std::free(block); }

  void* block = nullptr;
};

}  // namespace

Scenarios strings() {
  return {
      of_string("String", [](Texts& texts) { texts.result.emplace("text"); }),
      of_string("concat", [](Texts& texts) { texts.own.concat(texts.tail); }),
      of_string("concatf", [](Texts& texts) { texts.own.concatf("%s %d", kLongText, 5); }),
      of_string("deleteRegion", [](Texts& texts) { texts.shared.deleteRegion(2); }),
      of_string("format", [](Texts& texts) { texts.own.format("%s %d", kLongText, 5); }),
      of_string("insert", [](Texts& texts) { texts.own.insert(1, texts.tail); }),
      of_string("operator+", [](Texts& texts) { texts.result.emplace(texts.own + texts.tail); }),
      of_string("operator+=", [](Texts& texts) { texts.shared += "and"; }),
      of_string("operator=", [](Texts& texts) { texts.own = kLongText; }),
      of_string("replace", [](Texts& texts) { texts.shared.replace('a', 'o'); }),
      of_string("stringOf", [](Texts& texts) { texts.result.emplace(String::stringOf(17L)); }),
      of_string("substring", [](Texts& texts) { texts.result.emplace(texts.own.substring(1)); }),
      of_string("toLowerCase", [](Texts& texts) { texts.shared.toLowerCase(); }),
      of_string("toUpperCase", [](Texts& texts) { texts.shared.toUpperCase(); }),
      of_string("trim", [](Texts& texts) { texts.shared.trim(); }),
  };
}

Scenarios tables() {
  return {
      scenario<Tables>(
          "INStringHashTable::INStringHashTable", kPrepared,
          [](Tables& tables) {
            tables.made_texts.emplace(8);
            return Word{"done"};
          },
          made_tables),
      scenario<Tables>("INStringHashTable::addEntry", make_texts,
                       [](Tables& tables) { return tables.texts->addEntry("two", nullptr); }),
      scenario<Tables>("INStringHashTable::removeEntry", make_texts,
                       [](Tables& tables) { return tables.texts->removeEntry("one"); }),
      scenario<Tables>(
          "INUInt32HashTable::INUInt32HashTable", kPrepared,
          [](Tables& tables) {
            tables.made_numbers.emplace(8, HASH_FUNCTION_IDENTITY);
            return Word{"done"};
          },
          made_tables),
      scenario<Tables>("INUInt32HashTable::addEntry", make_numbers,
                       [](Tables& tables) { return tables.numbers->addEntry(2, nullptr); }),
      scenario<Tables>("INUInt32HashTable::removeEntry", make_numbers,
                       [](Tables& tables) { return tables.numbers->removeEntry(1); }),
  };
}

Scenarios memory() {
  return {
      scenario<Memory>("zalloc",
                       [](Memory& memory) {
                         memory.block = zalloc(64);
                         return made(memory.block);
                       }),
  };
}

}  // namespace faults
