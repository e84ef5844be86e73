// main() of fuzz targets that are not linked with libFuzzer: runs the inputs in the files and folders that
// are named, the empty one first.
//
//   NAME_fuzz PATH...
//
// The exit status is 0 when all have run. An input that finds something ends the program, and its name is
// the last one that was printed. A folder without inputs is an error.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "target.h"

// Targets may have it: it is called once, before the first input.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs_of(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> inputs;
  for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
    inputs.push_back(entry.path());
  }
  if (inputs.empty()) throw std::runtime_error("no inputs in " + path.string());
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

void run(const fs::path& path) {
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  // In memory of just its size, where a sanitizer sees what is read behind it.
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)), {});
  bytes.shrink_to_fit();
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s PATH...\n", argv[0]);
    return EXIT_FAILURE;
  }
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  const std::uint8_t nothing = 0;
  LLVMFuzzerTestOneInput(&nothing, 0);
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& input : inputs_of(argv[i])) run(input);
  }
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  return EXIT_FAILURE;
}
