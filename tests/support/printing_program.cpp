#include "support/printing_program.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "support/put_file.h"

namespace support {

PrintingProgram::PrintingProgram(const std::string& path) : path_(path) {
  if (std::filesystem::exists(path_)) std::filesystem::rename(path_, aside());
  put(arguments(), "");
  print("");
  run(print_output());
}

PrintingProgram::~PrintingProgram() {
  std::error_code ignored;
  for (const std::string& file : {path_, output(), arguments()}) {
    std::filesystem::remove(file, ignored);
  }
  std::filesystem::rename(aside(), path_, ignored);
}

void PrintingProgram::print(const std::string& text) const { put(output(), text); }

// Replaced, not overwritten: a program that runs cannot be.
void PrintingProgram::run(const std::string& commands) const {
  const std::string next = path_ + ".next";
  put(next,
      "#!/bin/sh\n{ printf '[%s]' \"$@\"; echo; } >> " + arguments() + "\n" + commands + "\n");
  std::filesystem::permissions(next, std::filesystem::perms(0755));
  std::filesystem::rename(next, path_);
}

std::string PrintingProgram::print_output() const { return "cat " + output(); }

std::vector<std::string> PrintingProgram::starts() const {
  std::vector<std::string> starts;
  std::ifstream file(arguments());
  for (std::string line; std::getline(file, line);) starts.push_back(line);
  return starts;
}

}  // namespace support
