#include "support/syslog_collector.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using support::LogLine;
using support::parse_log_line;
using support::SyslogCollector;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ParseLogLine, SplitsLevelAndText) {
  EXPECT_EQ(parse_log_line("<11>Nov 21 09:00:00 program: a text: here"),
            (LogLine{LOG_ERR, "a text: here"}));
  EXPECT_EQ(parse_log_line("<15>Nov  1 09:00:00 program[12]: text"), (LogLine{LOG_DEBUG, "text"}));
  EXPECT_EQ(parse_log_line("<14>Nov 21 09:00:00 : no name"), (LogLine{LOG_INFO, "no name"}));
}

TEST(ParseLogLine, TellsWhoLogged) {
  const LogLine line = parse_log_line("<155>Nov  1 09:00:00 program[12]: text");
  EXPECT_EQ(line.facility, LOG_LOCAL3);
  EXPECT_EQ(line.program, "program");
}

TEST(ParseLogLine, MarksWhatIsNoMessage) {
  EXPECT_EQ(parse_log_line("plain"), (LogLine{-1, "plain"}));
  EXPECT_EQ(parse_log_line(""), (LogLine{-1, ""}));
}

TEST(SyslogCollector, HasAMessageWhenTheCallReturns) {
  SyslogCollector log;
  for (int i = 0; i < 200; ++i) {
    ::syslog(LOG_WARNING, "message %d", i);
    EXPECT_THAT(log.take(), ElementsAre(LogLine{LOG_WARNING, "message " + std::to_string(i)}));
  }
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST(SyslogCollector, KeepsTheOrderOfManyMessages) {
  SyslogCollector log;
  std::vector<LogLine> expected;
  for (int i = 0; i < 2000; ++i) {
    ::syslog(LOG_ERR, "%d", i);
    expected.push_back({LOG_ERR, std::to_string(i)});
  }
  EXPECT_EQ(log.take(), expected);
}

TEST(SyslogCollector, HearsChildren) {
  SyslogCollector log;
  const pid_t child = ::fork();
  if (child == 0) {
    ::syslog(LOG_EMERG, "from a child");
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_THAT(log.take(), ElementsAre(LogLine{LOG_EMERG, "from a child"}));
}

}  // namespace
