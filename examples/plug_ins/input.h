// What programs and their plug-ins agree upon: what is connected to the router's digital inputs.
//
// A plug-in's init function gets the name of the router's place, a text that stays valid; its class
// factory is an InputFactory.
#ifndef EXAMPLES_PLUG_INS_INPUT_H
#define EXAMPLES_PLUG_INS_INPUT_H

#include <rkutils/export.h>

#include <memory>
#include <string>

// One input. Exported, as are the types that a program and its plug-ins share, so that they are the
// same for both.
class RK_API Input {
 public:
  virtual ~Input() = default;

  // What it means that the input is on now, or off.
  virtual std::string meaning(bool on) const = 0;
};

class RK_API InputFactory {
 public:
  virtual ~InputFactory() = default;

  // The input with this number, counted from 1; nullptr where nothing is connected.
  virtual std::unique_ptr<Input> create(unsigned number) const = 0;
};

#endif
