// connected-inputs: what is connected to the router's digital inputs, as a plug-in knows it.
//
//     connected-inputs PLUG-IN PLACE
//
// PLUG-IN is a shared library, plug_ins/cabinet.cpp for one; plug_ins/input.h is what it has to have.

#include <rkutils/dio.h>
#include <rkutils/dynamic_module.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "plug_ins/input.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: connected-inputs PLUG-IN PLACE\n", stderr);
    return EXIT_FAILURE;
  }
  CDynamicModule plug_in(argv[1]);  // ends after all that comes out of it
  if (plug_in.load(argv[2]) != 0) {
    const char* const reason = plug_in.lastError();
    std::printf("no plug-in: %s\n", reason != nullptr ? reason : "for no known reason");
    return EXIT_FAILURE;
  }
  const auto* const factory = static_cast<const InputFactory*>(plug_in.getClassFactory());
  if (factory == nullptr) return EXIT_FAILURE;  // the log says why
  for (unsigned number = DIORONUMBER_MIN; number <= DIORONUMBER_MAX; ++number) {
    const std::unique_ptr<Input> input = factory->create(number);
    if (input == nullptr) continue;
    std::printf("input %u: %s, %s\n", number, input->meaning(true).c_str(),
                input->meaning(false).c_str());
  }
  return EXIT_SUCCESS;
}
