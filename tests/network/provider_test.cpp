// Providers out of the provider database.

#include <rkutils/file.h>
#include <rkutils/interface.h>
#include <rkutils/text.h>

#include <cerrno>
#include <csignal>
#include <map>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/interruption.h"
#include "support/open_descriptors.h"
#include "support/printing_program.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class PdbFindProvider : public testing::Test {
 protected:
  PdbFindProvider() : descriptors_before_(support::open_descriptors()) {}
  void TearDown() override {
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  const support::PrintingProgram pdb_{"/usr/bin/pdb"};

 private:
  support::SyslogCollector log_;
  const std::map<int, std::string> descriptors_before_;
};

// ---- Answers

struct AnswerCase {
  std::string name;
  std::string output;
  std::string provider;
};

class PdbAnswer : public PdbFindProvider, public testing::WithParamInterface<AnswerCase> {};

TEST_P(PdbAnswer, HasTheProvider) {
  pdb_.print(GetParam().output);
  EXPECT_EQ(pdb_find_provider("26201"), GetParam().provider);
  EXPECT_THAT(pdb_.starts(), ElementsAre("[-n][26201]"));
}

INSTANTIATE_TEST_SUITE_P(
    Of, PdbAnswer,
    testing::Values(
        AnswerCase{"OneLine", "provider: Example\n", "Example"},
        AnswerCase{"SeveralWords", "provider: Example Mobile GmbH\n", "Example Mobile GmbH"},
        AnswerCase{"LinesAround", "country: DE\nprovider: Example\napn: internet\n", "Example"},
        AnswerCase{"TwoProviders", "provider: First\nprovider: Second\n", "First"},
        AnswerCase{"AnEmptyOneFirst", "provider:\nprovider: Second\n", ""},
        AnswerCase{"NoBlank", "provider:Example\n", "Example"},
        AnswerCase{"OneLetter", "provider:E\n", "E"},
        AnswerCase{"MuchWhiteSpace", "provider: \t  Example \t \r\n", "Example"},
        AnswerCase{"WhiteSpaceAlone", "provider: \t \n", ""},
        AnswerCase{"TheLabelAlone", "provider:", ""},
        AnswerCase{"TheLabelTwice", "provider:provider:\n", "provider:"},
        AnswerCase{"NoLineFeed", "provider: Example", "Example"}, AnswerCase{"NoAnswer", "", ""},
        AnswerCase{"AnotherAnswer", "unknown\n", ""},
        AnswerCase{"NoColon", "provider Example\n", ""},
        AnswerCase{"ABlankBeforeTheColon", "provider : Example\n", ""},
        AnswerCase{"ABlankBeforeTheLabel", " provider: Example\n", ""},
        AnswerCase{"TheLabelWithinALine", "no provider: Example\n", ""},
        AnswerCase{"UpperCase", "Provider: Example\n", ""},
        AnswerCase{"HighBytes", "provider: \xC3\x89t\xC3\xA9\n", "\xC3\x89t\xC3\xA9"},
        AnswerCase{"SixtyThree", "provider: " + std::string(63, 'x') + "\n", std::string(63, 'x')},
        AnswerCase{"SixtyFour", "provider: " + std::string(64, 'x') + "\n", std::string(63, 'x')},
        AnswerCase{"CutBehindABlank", "provider: " + std::string(62, 'x') + " y\n",
                   std::string(62, 'x') + " "},
        AnswerCase{"Nul", "provider: Exa\0mple\nprovider: Second\n"s, "Exa"},
        AnswerCase{"NulInTheLabel", "provi\0der: First\nprovider: Second\n"s, "Second"},
        AnswerCase{"NulFirst", "\0provider: First\nprovider: Second\n"s, "Second"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfLongLines, PdbAnswer,
    testing::Values(
        AnswerCase{"Provider", "provider: " + std::string(5000, 'x') + "\n", std::string(63, 'x')},
        AnswerCase{"ProviderAtItsEnd", "provider:" + std::string(1011, ' ') + "Name\n", "Name"},
        AnswerCase{"ProviderBeyondItsEnd", "provider:" + std::string(1012, ' ') + "Name\n", "Nam"},
        AnswerCase{"ProviderFarBeyondItsEnd", "provider:" + std::string(1100, ' ') + "Name\n", ""},
        AnswerCase{"RestThatLooksLikeAnAnswer",
                   std::string(1024, 'x') + "provider: First\nprovider: Second\n", "Second"},
        AnswerCase{"FarRestThatLooksLikeAnAnswer",
                   std::string(std::size_t{5} * 1024, 'x') + "provider: First\n", ""},
        AnswerCase{"RestOfOneByteLess", std::string(1023, 'x') + "provider: First\n", ""},
        AnswerCase{"ALineOfAllTheLength", std::string(1023, 'x') + "\nprovider: First\n", "First"},
        AnswerCase{"RestOfALineWithANul",
                   "x\0"s + std::string(1022, 'x') + "provider: First\nprovider: Second\n",
                   "Second"}),
    support::CaseName());

// ---- Keys

TEST_F(PdbFindProvider, NeedsAKey) {
  pdb_.print("provider: Example\n");
  EXPECT_EQ(pdb_find_provider(nullptr), nullptr);
  EXPECT_EQ(pdb_find_provider(""), nullptr);
  EXPECT_THAT(pdb_.starts(), IsEmpty());
}

TEST_F(PdbFindProvider, GivesTheKeyAsArguments) {
  pdb_find_provider("262 01");
  pdb_find_provider(" -x  26201 ");
  pdb_find_provider(" ");
  pdb_find_provider("a/b.c,d:e+f-g_h@i^j\x01\x7F\xC3\xA4");
  EXPECT_THAT(pdb_.starts(), ElementsAre("[-n][262][01]", "[-n][-x][26201]", "[-n]",
                                         "[-n][a/b.c,d:e+f-g_h@i^j\x01\x7F\xC3\xA4]"));
}

TEST_F(PdbFindProvider, RefusesWhatAShellWouldUnderstand) {
  pdb_.print("provider: Example\n");
  const std::string refused = "|&;<>()$`\\\"'*?[]#~=%!{}\t\n\v\f\r";
  for (const char character : refused) {
    for (const std::string& key : {"26201"s + character, character + "26201"s,
                                   "262"s + character + "01", std::string(1, character)}) {
      EXPECT_EQ(pdb_find_provider(key.c_str()), nullptr) << key;
    }
  }
  EXPECT_EQ(pdb_find_provider("26201; touch /tmp/by-a-key"), nullptr);
  EXPECT_EQ(pdb_find_provider("$(touch /tmp/by-a-key)"), nullptr);
  EXPECT_EQ(pdb_find_provider("26201\ntouch /tmp/by-a-key"), nullptr);
  EXPECT_NE(::access("/tmp/by-a-key", F_OK), 0);
  EXPECT_THAT(pdb_.starts(), IsEmpty());
}

TEST_F(PdbFindProvider, RefusesNothingElse) {
  pdb_.print("provider: Example\n");
  const std::string refused = "|&;<>()$`\\\"'*?[]#~=%!{}\t\n\v\f\r";
  std::string key;
  for (int byte = 1; byte < 256; ++byte) {
    const char character = static_cast<char>(byte);
    if (refused.find(character) == std::string::npos) key += character;
  }
  EXPECT_EQ(key.size(), 255 - refused.size());
  EXPECT_STREQ(pdb_find_provider(key.c_str()), "Example");
  key.replace(key.find(' '), 1, "][");
  EXPECT_THAT(pdb_.starts(), ElementsAre("[-n][" + key + "]"));
}

TEST_F(PdbFindProvider, RefusesAKeyThatWouldBeCut) {
  pdb_.print("provider: Example\n");
  const std::string key(2031, 'x');
  EXPECT_STREQ(pdb_find_provider(key.c_str()), "Example");
  EXPECT_THAT(pdb_.starts(), ElementsAre("[-n][" + key + "]"));
  EXPECT_EQ(pdb_find_provider((key + "x").c_str()), nullptr);
  EXPECT_EQ(pdb_find_provider((key + key).c_str()), nullptr);
  EXPECT_EQ(pdb_find_provider((key + " ").c_str()), nullptr);
  EXPECT_EQ(pdb_.starts().size(), 1U);
}

// ---- The command

TEST_F(PdbFindProvider, TakesWhatAFailingCommandPrinted) {
  pdb_.print("provider: Example\n");
  pdb_.run(pdb_.print_output() + "; exit 3");
  EXPECT_STREQ(pdb_find_provider("26201"), "Example");
  pdb_.run(pdb_.print_output() + "; kill -PIPE $$");
  EXPECT_STREQ(pdb_find_provider("26201"), "Example");
  pdb_.run("exit 3");
  EXPECT_STREQ(pdb_find_provider("26201"), "");
}

TEST_F(PdbFindProvider, ACommandThatIsNotThereHasNone) {
  ASSERT_EQ(::unlink("/usr/bin/pdb"), 0);
  EXPECT_EQ(support::in_child([] {
              ::dup2(::open("/tmp/complaint", O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDERR_FILENO);
              const char* const provider = pdb_find_provider("26201");
              return std::string(provider == nullptr ? "NULL" : provider);
            }),
            "");
  // Its standard error is the caller's.
  EXPECT_THAT(readfile("/tmp/complaint"), testing::HasSubstr("/usr/bin/pdb"));
  ::unlink("/tmp/complaint");
}

TEST_F(PdbFindProvider, IsNullWithoutACommand) {
  pdb_.print("provider: Example\n");
  char* const last = pdb_find_provider("26201");
  char* provider = last;
  support::run_with_failing_calls({{support::SystemCall::kFork, EAGAIN}},
                                  [&] { provider = pdb_find_provider("26201"); });
  EXPECT_EQ(provider, nullptr);
  for (const unsigned spare : {0U, 1U}) {
    const support::NoMoreDescriptors none(spare);
    EXPECT_EQ(pdb_find_provider("26201"), nullptr) << spare;
  }
  EXPECT_STREQ(last, "Example");
}

TEST_F(PdbFindProvider, DoesNotWaitForMoreThanTheAnswer) {
  pdb_.run("echo provider: Example; while echo more; do :; done");
  EXPECT_STREQ(pdb_find_provider("26201"), "Example");
}

TEST_F(PdbFindProvider, WaitsForTheCommandsEnd) {
  pdb_.run("echo provider: Example; exec > /dev/null; sleep 0.2; touch /tmp/ended");
  EXPECT_STREQ(pdb_find_provider("26201"), "Example");
  EXPECT_EQ(::unlink("/tmp/ended"), 0);
}

TEST_F(PdbFindProvider, WorksWhereSigchldIsIgnored) {
  pdb_.print("provider: Example\n");
  EXPECT_EQ(support::in_child([] {
              ::signal(SIGCHLD, SIG_IGN);
              return std::string(pdb_find_provider("26201"));
            }),
            "Example");
}

TEST_F(PdbFindProvider, ASignalLosesNothing) {
  pdb_.run("printf 'provider: Exa'; sleep 0.3; echo mple");
  const support::Interruption interruption;
  std::string provider;
  std::thread thread([&] { provider = pdb_find_provider("26201"); });
  support::Interruption::send(thread);
  thread.join();
  EXPECT_EQ(provider, "Example");
}

TEST_F(PdbFindProvider, IsFinishedByACancelledThread) {
  pdb_.print("provider: Example\n");
  std::string provider;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { provider = pdb_find_provider("26201"); }));
  EXPECT_EQ(provider, "Example");
}

TEST_F(PdbFindProvider, WorksOnASmallStack) {
  pdb_.print("provider: Example\n");
  support::run_on_small_stack([] { EXPECT_STREQ(pdb_find_provider("26201"), "Example"); });
}

// ---- Buffers

TEST_F(PdbFindProvider, HasOneBufferForAll) {
  pdb_.print("provider: " + std::string(63, 'x') + "\n");
  char* const first = pdb_find_provider("26201");
  EXPECT_EQ(first, std::string(63, 'x'));
  pdb_.print("provider: a\n");
  EXPECT_EQ(pdb_find_provider("26202"), first);
  EXPECT_STREQ(first, "a");
  EXPECT_EQ(std::string(first, 64), "a" + std::string(63, '\0'));
  EXPECT_EQ(pdb_find_provider("26*"), nullptr);
  EXPECT_STREQ(first, "a");
  pdb_.print("");
  EXPECT_EQ(pdb_find_provider("26203"), first);
  EXPECT_EQ(std::string(first, 64), std::string(64, '\0'));
}

TEST_F(PdbFindProvider, TakesItsResultAndAFormattedTextForAKey) {
  pdb_.print("provider: Example\n");
  char* const name = pdb_find_provider(strformat("%s%s", "262", "01"));
  EXPECT_STREQ(pdb_find_provider(name), "Example");
  EXPECT_THAT(pdb_.starts(), ElementsAre("[-n][26201]", "[-n][Example]"));
}

TEST_F(PdbFindProvider, WritesItsCommandWithStrformat) {
  const char* const text = strformat("%s", "text");
  pdb_find_provider("26*");
  EXPECT_STREQ(text, "text");
  pdb_find_provider("26201");
  EXPECT_STREQ(text, "/usr/bin/pdb -n 26201");
}

}  // namespace
