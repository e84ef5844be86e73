// cabinet: a plug-in for routers in cabinets at the street, with the door as the first input.

#include "plug_ins/input.h"

namespace {

const char* place = "";

class Door : public Input {
 public:
  std::string meaning(bool on) const override {
    return std::string("cabinet ") + place + (on ? " opened" : " closed");
  }
};

class Cabinet : public InputFactory {
 public:
  std::unique_ptr<Input> create(unsigned number) const override {
    return number == 1 ? std::make_unique<Door>() : nullptr;
  }
};

}  // namespace

// What the library looks for in a plug-in.
extern "C" {
RK_API void dynamic_module_init(void* argument);
RK_API void dynamic_module_done();
RK_API void* getClassFactory();
}

void dynamic_module_init(void* argument) { place = static_cast<const char*>(argument); }

void dynamic_module_done() { place = ""; }

void* getClassFactory() {
  static Cabinet cabinet;
  return static_cast<InputFactory*>(&cabinet);  // that, and not a Cabinet, is what programs expect
}
