// Sequences of operations on Strings that share their buffers, beside std::string.

#include <cstdint>
#include <exception>

#include "foundations/string_model.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  try {
    string_model::Model model(fuzz::choices_of(input));
    while (!input.empty()) {
      model.change();
      model.check();
      model.ask();
    }
  } catch (const std::exception& difference) {
    fuzz::fail(difference.what());
  }
  return 0;
}
