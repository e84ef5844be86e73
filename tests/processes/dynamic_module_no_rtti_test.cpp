// Programs may be compiled without the types that the compiler keeps for run time: their classes
// have none, and are derived ones all the same.

#include <rkutils/dynamic_module.h>

#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "processes/plug_ins/plug_in.h"
#include "support/private_router.h"
#include "support/syslog_collector.h"

#ifdef __GXX_RTTI
#error This is to be compiled with -fno-rtti.
#endif

namespace {

class Counted : public CDynamicModule {
 public:
  Counted(const std::string& path, int& ended) : CDynamicModule(path), ended_(ended) {}
  ~Counted() override { ++ended_; }

 private:
  int& ended_;
};

TEST(DynamicModuleWithoutRunTimeTypes, IsLoadedAndDestroyedAsDerived) {
  support::SyslogCollector log;
  plug_in_argument argument = {};
  int ended = 0;
  std::unique_ptr<CDynamicModule> module =
      std::make_unique<Counted>(support::built_program("tests/processes/plug-in-whole.so"), ended);
  EXPECT_EQ(module->load(&argument), 0);
  EXPECT_EQ(module->getClassFactory(), &argument);
  EXPECT_EQ(ended, 0);
  log.take();
  module.reset();
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(log.take().size(), 3U);
}

}  // namespace
