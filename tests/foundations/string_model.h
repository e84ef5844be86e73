// String beside std::string: any operations on handles that share buffers, with texts that hold NULs and
// bytes beyond ASCII.
#ifndef TESTS_FOUNDATIONS_STRING_MODEL_H
#define TESTS_FOUNDATIONS_STRING_MODEL_H

#include <memory>

#include "support/choices.h"

namespace string_model {

// A few Strings, and what they should be. The functions throw std::runtime_error where the two differ.
class Model {
 public:
  explicit Model(support::Choices choices);
  ~Model();
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  // Changes one handle.
  void change();

  // Asks one handle something.
  void ask();

  // Compares every handle, also those that the last change did not name.
  void check() const;

 private:
  class State;

  std::unique_ptr<State> state_;
};

}  // namespace string_model

#endif
