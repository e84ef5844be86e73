#include "dio_fixture.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <syslog.h>

using support::DioOperation;
using support::LogLine;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

LogLine failed(const std::string& call, const std::string& path, int error) {
  return {LOG_ERR, "Can't " + call + "(" + path + ") - (" + std::strerror(error) + ")"};
}

LogLine not_read(const std::string& path, int error) {
  return {LOG_ERR, "Can't read from \"" + path + "\" - (" + std::strerror(error) + ")"};
}

LogLine not_written(const std::string& path, int error) {
  return {LOG_ERR, "Can't write to \"" + path + "\" - (" + std::strerror(error) + ")"};
}

LogLine lexical_error(const std::string& path) {
  return {LOG_ERR, "Lexical error on input from \"" + path + "\""};
}

LogLine out_of_range(const std::string& number) {
  return {LOG_WARNING, "DIO number out of range (" + number + " > 99)"};
}

uint32_t counted(unsigned (*count)(uint32_t*)) {
  uint32_t number = 12345;
  EXPECT_EQ(count(&number), DIO_OK);
  return number;
}

uint32_t inputs() { return counted(dio_roCount); }

uint32_t outputs() { return counted(dio_rwCount); }

std::vector<DioOperation> use_of(const std::string& path, const std::string& access,
                                 const std::vector<DioOperation>& operations) {
  std::vector<DioOperation> all = {{"open", path, access}};
  all.insert(all.end(), operations.begin(), operations.end());
  all.push_back({"close", path, ""});
  return all;
}

testing::Matcher<const std::string&> assertion(const std::string& condition,
                                               const std::string& source,
                                               const std::string& function) {
  return AllOf(AnyOf(HasSubstr("Assertion `" + condition + "' failed."),
                     HasSubstr("Assertion failed: " + condition + " (")),
               HasSubstr(source + ":"), HasSubstr(" " + function + ":"));
}

void DioLogTest::TearDown() {
  EXPECT_THAT(log_.take(), IsEmpty()) << "messages that the test did not expect";
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

int DioBrokenLogTest::error_after(const std::function<void()>& action,
                                  std::vector<support::FailingCall> calls) {
  int error = 0;
  calls.push_back({support::SystemCall::kSend, ENOENT});
  support::run_with_failing_calls(calls, [&] {
    errno = 0;
    action();
    error = errno;
  });
  return error;
}

void DioTest::SetUp() {
  try {
    driver_.emplace(3, 2);
  } catch (const support::StandInRefused& refusal) {
    GTEST_SKIP() << refusal.what();
  }
}

void DioTest::TearDown() {
  driver_.reset();
  DioLogTest::TearDown();
}
