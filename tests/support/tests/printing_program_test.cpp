#include "support/printing_program.h"

#include <filesystem>
#include <string>

#include <gmock/gmock.h>

#include "support/put_file.h"
#include "support/run_program.h"

namespace {

using namespace std::string_literals;
using support::PrintingProgram;
using support::run_program;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPath = "/usr/bin/printed";

TEST(PrintingProgram, PrintsEveryByte) {
  const PrintingProgram program(kPath);
  EXPECT_EQ(run_program({kPath}).output, "");
  program.print("a\0%s\\n\xFF"s);
  EXPECT_EQ(run_program({kPath}).output, "a\0%s\\n\xFF"s);
}

TEST(PrintingProgram, RunsCommands) {
  const PrintingProgram program(kPath);
  program.print("text");
  program.run("echo begin; " + program.print_output() + "; exit 3");
  const auto [output, status] = run_program({kPath});
  EXPECT_EQ(output, "begin\ntext");
  EXPECT_EQ(status, 3);
}

TEST(PrintingProgram, KnowsItsStarts) {
  const PrintingProgram program(kPath);
  EXPECT_THAT(program.starts(), IsEmpty());
  run_program({kPath, "-n", "a b", ""});
  program.run("true");
  run_program({kPath, "%s"});
  EXPECT_THAT(program.starts(), ElementsAre("[-n][a b][]", "[%s]"));
}

TEST(PrintingProgram, LeavesWhatWasThere) {
  support::put(kPath, "#!/bin/sh\necho installed\n");
  std::filesystem::permissions(kPath, std::filesystem::perms(0755));
  {
    const PrintingProgram program(kPath);
    EXPECT_EQ(run_program({kPath}).output, "");
  }
  EXPECT_EQ(run_program({kPath}).output, "installed\n");
  std::filesystem::remove(kPath);
  { const PrintingProgram program(kPath); }
  for (const auto& entry : std::filesystem::directory_iterator("/usr/bin")) {
    EXPECT_THAT(entry.path().string(), testing::Not(testing::StartsWith(kPath)));
  }
}

}  // namespace
