// What no address can bring about: a request that does not fit.

#include <rkutils/network/route/query.h>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <syslog.h>

#include "support/syslog_collector.h"

namespace {

using rkutils::network::route::prepare;
using rkutils::network::route::RouteMessage;
using rkutils::network::route::RouteQuery;
using support::LogLine;

TEST(RouteQueryPreparation, RefusesAnAddressThatDoesNotFit) {
  support::SyslogCollector log;
  RouteQuery query;
  RouteMessage message;
  for (const int length : {1021, 1024, 65536, -1}) {
    query.address_length = length;
    EXPECT_FALSE(prepare(query, AF_INET, message)) << length;
    EXPECT_THAT(log.take(), testing::ElementsAre(LogLine{LOG_DEBUG, "rtq: maxlen exceeded"}));
  }
}

TEST(RouteQueryPreparation, LogsNothingForAnAddressThatFits) {
  support::SyslogCollector log;
  RouteQuery query;
  RouteMessage message;
  for (const int length : {4, 16}) {
    query.address_length = length;
    EXPECT_TRUE(prepare(query, AF_INET, message)) << length;
  }
  EXPECT_THAT(log.take(), testing::IsEmpty());
}

}  // namespace
