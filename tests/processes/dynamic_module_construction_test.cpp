// Modules before anything is loaded.

#include <rkutils/dynamic_module.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>

#include "support/allocation_faults.h"
#include "support/member_type.h"
#include "support/syslog_collector.h"
#include "support/virtual_slot.h"

namespace {

static_assert(std::has_virtual_destructor_v<CDynamicModule>);
static_assert(!std::is_copy_constructible_v<CDynamicModule>);
static_assert(!std::is_copy_assignable_v<CDynamicModule>);
static_assert(std::is_constructible_v<CDynamicModule, const std::string&>);
static_assert(support::kIs<&CDynamicModule::load, int (CDynamicModule::*)(void*)>);
static_assert(support::kIs<&CDynamicModule::getClassFactory, void* (CDynamicModule::*)() const>);
static_assert(support::kIs<&CDynamicModule::lastError, const char* (CDynamicModule::*)() const>);
static_assert(
    support::kIs<&CDynamicModule::getLibPath, const std::string& (CDynamicModule::*)() const>);

class DynamicModuleConstruction : public testing::Test {
 protected:
  ~DynamicModuleConstruction() override {
    module_.reset();
    EXPECT_THAT(log_.take(), testing::IsEmpty());
  }

  CDynamicModule& make(const std::string& path) { return module_.emplace(path); }

 private:
  support::SyslogCollector log_;
  std::optional<CDynamicModule> module_;
};

TEST_F(DynamicModuleConstruction, HasNoVirtualMembersButItsDestructor) {
  EXPECT_GT(support::virtual_slot(&CDynamicModule::load), 100U);
  EXPECT_GT(support::virtual_slot(&CDynamicModule::getClassFactory), 100U);
  EXPECT_GT(support::virtual_slot(&CDynamicModule::lastError), 100U);
  EXPECT_GT(support::virtual_slot(&CDynamicModule::getLibPath), 100U);
}

TEST_F(DynamicModuleConstruction, IsDestroyedAsWhatItIs) {
  class Counted : public CDynamicModule {
   public:
    Counted(const std::string& path, int& ended) : CDynamicModule(path), ended_(ended) {}
    ~Counted() override { ++ended_; }

   private:
    int& ended_;
  };
  int ended = 0;
  std::unique_ptr<CDynamicModule> module = std::make_unique<Counted>("", ended);
  module.reset();
  EXPECT_EQ(ended, 1);
}

TEST_F(DynamicModuleConstruction, OpensNothingYet) { make("/tmp/missing.so"); }

TEST_F(DynamicModuleConstruction, HasItsOwnPath) {
  std::string path = "/tmp/missing.so";
  const CDynamicModule& module = make(path);
  path[5] = 'M';
  EXPECT_EQ(module.getLibPath(), "/tmp/missing.so");
  const std::string with_nul("/tmp\0missing", 12);
  EXPECT_EQ(make(with_nul).getLibPath(), with_nul);
  EXPECT_EQ(make("").getLibPath(), "");
}

TEST_F(DynamicModuleConstruction, ThrowsWithoutMemoryForItsPath) {
  const std::string path(200, 'x');
  const support::FailingAllocation first(1);
  EXPECT_THROW(make(path), std::bad_alloc);
  EXPECT_TRUE(first.happened());
}

}  // namespace
