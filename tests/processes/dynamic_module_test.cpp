// Plug-ins: shared libraries that a program loads while it runs.

#include <rkutils/dynamic_module.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <syslog.h>

#include "processes/plug_ins/plug_in.h"
#include "support/failing_dlclose.h"
#include "support/open_descriptors.h"
#include "support/private_router.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using support::LogLine;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::StartsWith;

// musl keeps what was loaded until the process ends, and tells in errno why a library cannot be
// opened. The loader of the GNU C library has an errno of its own.
#ifdef __GLIBC__
constexpr bool kUnloads = true;
constexpr bool kHasErrno = false;
#else
constexpr bool kUnloads = false;
constexpr bool kHasErrno = true;
#endif

// What a message says when errno is as musl has it.
std::string reason_of(int error) { return std::strerror(kHasErrno ? error : 0); }

LogLine err(const std::string& text) { return {LOG_ERR, text}; }
LogLine warning(const std::string& text) { return {LOG_WARNING, text}; }
LogLine debug(const std::string& text) { return {LOG_DEBUG, text}; }

// What a plug-in has logged.
LogLine call_of(const std::string& function) { return {LOG_INFO, function}; }

LogLine opened(const std::string& path) { return debug("opened shared library \"" + path + '"'); }
LogLine init_called(const std::string& path) {
  return debug("calling init function for shared library \"" + path + '"');
}
LogLine done_called(const std::string& path) {
  return debug("Calling done function for shared library \"" + path + '"');
}
LogLine closing(const std::string& path) { return debug("closing shared library \"" + path + '"'); }
LogLine factory_called(const std::string& path) {
  return debug("Retrieving classfactory from shared library \"" + path + '"');
}
LogLine without_factory(const std::string& path) {
  return err("Symbol \"getClassFactory\" not found in shared library \"" + path + '"');
}
LogLine not_opened(const std::string& path, const std::string& reason) {
  return err("Unable to open shared library \"" + path + "\" - error=" + reason);
}

std::string plug_in(const std::string& name) {
  return support::built_program("tests/processes/" + name + ".so");
}

// Has the loader fail, for a reason that dlerror() tells next.
constexpr const char* kMissingName = "plug_in_no_such_function";
void look_for_missing_name() { EXPECT_THAT(::dlsym(RTLD_DEFAULT, kMissingName), IsNull()); }

// A handle of the test's own on a library that is loaded already; NULL when it is not.
void* handle_on_loaded(const std::string& path) {
  return ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
}

bool is_loaded(const std::string& path) {
  void* const handle = handle_on_loaded(path);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

// What errno is when the C library itself is asked, and nothing was wrong before.
int error_of_opening(const std::string& path) {
  errno = 0;
  EXPECT_THAT(::dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL), IsNull());
  const int error = errno;
  ::dlerror();
  return error;
}

// Has an object for the test, which may end it; and one more.
class DynamicModule : public testing::Test {
 protected:
  ~DynamicModule() override {
    EXPECT_THAT(log_.take(), IsEmpty());
    module_.reset();
    other_.reset();
    EXPECT_EQ(support::open_descriptors(), descriptors_);
  }

  CDynamicModule& make(const std::string& path) { return module_.emplace(path); }

  // The object with its library loaded, and the messages of that gone.
  CDynamicModule& make_loaded(const std::string& path, void* arg = nullptr) {
    EXPECT_EQ(make(path).load(arg), 0);
    log_.take();
    return *module_;
  }

  // The messages of the object's end.
  std::vector<LogLine> end() {
    log_.take();
    module_.reset();
    return log_.take();
  }

  // A load() that fails, with what musl has in errno then. Before, errno tells of something else.
  void expect_failure(const std::string& path, int error) {
    EXPECT_STREQ(std::strerror(error_of_opening(path)), reason_of(error).c_str()) << path;
    CDynamicModule& module = make(path);
    errno = EPERM;
    EXPECT_EQ(module.load(nullptr), -1) << path;
    EXPECT_THAT(module.lastError(), NotNull()) << path;
    EXPECT_THAT(log_.take(), ElementsAre(not_opened(path, reason_of(error))));
  }

  support::SyslogCollector log_;
  std::optional<CDynamicModule> module_;
  std::optional<CDynamicModule> other_;

 private:
  const std::map<int, std::string> descriptors_ = support::open_descriptors();
};

TEST_F(DynamicModule, HasHandleAndPathInThisOrder) {
  const std::string path = plug_in("plug-in-bare");
  CDynamicModule& module = make(path);
  const auto* const bytes = reinterpret_cast<const char*>(&module);
  const auto handle = [bytes] {
    void* value = nullptr;
    std::memcpy(&value, bytes + sizeof(void*), sizeof value);
    return value;
  };
  EXPECT_EQ(&module.getLibPath(), reinterpret_cast<const std::string*>(bytes + 2 * sizeof(void*)));
  EXPECT_THAT(handle(), IsNull());
  EXPECT_EQ(module.load(nullptr), 0);
  log_.take();
  void* const found = handle_on_loaded(path);
  EXPECT_THAT(found, NotNull());
  EXPECT_EQ(handle(), found);
  ::dlclose(found);
}

// ---- load() ----

using DynamicModuleLoad = DynamicModule;

TEST_F(DynamicModuleLoad, OpensTheLibraryAndCallsItsInitFunction) {
  const std::string path = plug_in("plug-in-whole");
  EXPECT_EQ(make(path).load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(path), init_called(path), call_of("init")));
  EXPECT_TRUE(is_loaded(path));
}

TEST_F(DynamicModuleLoad, PassesItsArgument) {
  plug_in_argument argument = {};
  EXPECT_EQ(make_loaded(plug_in("plug-in-whole"), &argument).getClassFactory(), &argument);
  log_.take();
}

TEST_F(DynamicModuleLoad, MayFindNoInitFunction) {
  for (const char* const name : {"plug-in-without-init", "plug-in-bare"}) {
    const std::string path = plug_in(name);
    EXPECT_EQ(make(path).load(nullptr), 0);
    EXPECT_THAT(log_.take(), ElementsAre(opened(path)));
    end();
  }
}

TEST_F(DynamicModuleLoad, IsDoneOnce) {
  const std::string path = plug_in("plug-in-whole");
  plug_in_argument first = {};
  plug_in_argument second = {};
  CDynamicModule& module = make_loaded(path, &first);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(module.load(&second), -1);
    EXPECT_THAT(log_.take(), ElementsAre(debug("Dynamic module " + path + " already loaded")));
  }
  EXPECT_EQ(module.getClassFactory(), &first);
  log_.take();
}

TEST_F(DynamicModuleLoad, IsDoneWhenTheInitFunctionIsCalled) {
  struct Argument : plug_in_argument {
    CDynamicModule* module;
    int result;
    void* factory;
  };
  const std::string path = plug_in("plug-in-whole");
  Argument argument = {};
  argument.module = &make(path);
  argument.during_init = [](plug_in_argument* given) {
    auto* const self = static_cast<Argument*>(given);
    self->result = self->module->load(self);
    self->factory = self->module->getClassFactory();
  };
  EXPECT_EQ(argument.module->load(&argument), 0);
  EXPECT_EQ(argument.result, -1);
  EXPECT_EQ(argument.factory, &argument);
  EXPECT_THAT(log_.take(), ElementsAre(opened(path), init_called(path), call_of("init"),
                                       debug("Dynamic module " + path + " already loaded"),
                                       factory_called(path), call_of("factory")));
}

TEST_F(DynamicModuleLoad, FindsALibraryByItsName) {
  constexpr const char* kPath = "/usr/lib/found-by-name.so";
  std::filesystem::copy_file(plug_in("plug-in-bare"), kPath);
  EXPECT_EQ(make("found-by-name.so").load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened("found-by-name.so")));
  std::filesystem::remove(kPath);
}

TEST_F(DynamicModuleLoad, FailsForAMissingFile) { expect_failure("/tmp/missing.so", ENOENT); }

TEST_F(DynamicModuleLoad, FailsForANameThatIsNowhere) { expect_failure("missing.so", ENOENT); }

TEST_F(DynamicModuleLoad, FailsForAFolder) { expect_failure("/tmp", EISDIR); }

TEST_F(DynamicModuleLoad, FailsForWhatIsNoLibrary) {
  support::put("/tmp/text.so", std::string(4096, 'x'));
  std::filesystem::copy_file(plug_in("plug-in-bare"), "/tmp/half.so");
  std::filesystem::resize_file("/tmp/half.so", 40);
  for (const char* const path : {"/dev/null", "/tmp/text.so", "/tmp/half.so"}) {
    expect_failure(path, ENOEXEC);
  }
  std::filesystem::remove("/tmp/text.so");
  std::filesystem::remove("/tmp/half.so");
}

// Neither C library says anything about these.
TEST_F(DynamicModuleLoad, FailsForAMissingVariable) {
  const std::string path = plug_in("plug-in-reader");
  expect_failure(path, 0);
  EXPECT_FALSE(is_loaded(path));
}

TEST_F(DynamicModuleLoad, FailsForANameThatIsTooLong) { expect_failure(std::string(256, 'x'), 0); }

TEST_F(DynamicModuleLoad, FailsForAPathThatIsTooLong) {
  expect_failure("/tmp/" + std::string(256, 'x'), ENAMETOOLONG);
  std::string path = "/tmp";
  while (path.size() < 60000) path += "/x";
  expect_failure(path, ENAMETOOLONG);
}

TEST_F(DynamicModuleLoad, FailsForAPathWithANul) {
  const std::string path = plug_in("plug-in-bare");
  CDynamicModule& module = make(path + std::string("\0.txt", 5));
  EXPECT_EQ(module.load(nullptr), -1);
  EXPECT_THAT(log_.take(), ElementsAre(not_opened(path, std::strerror(EINVAL))));
}

TEST_F(DynamicModuleLoad, OpensTheProgramForAnEmptyPathOrFails) {
  CDynamicModule& module = make("");
  if (kUnloads) {
    EXPECT_EQ(module.load(nullptr), 0);
    EXPECT_THAT(log_.take(), ElementsAre(opened("")));
    EXPECT_THAT(module.getClassFactory(), IsNull());
    EXPECT_THAT(log_.take(), ElementsAre(without_factory("")));
  } else {
    expect_failure("", EINVAL);
  }
}

#ifdef __GLIBC__
// The program's names are those of all that is loaded.
TEST_F(DynamicModuleLoad, FindsTheFunctionsOfOtherPlugInsInTheProgram) {
  plug_in_argument first = {};
  plug_in_argument second = {};
  const CDynamicModule& plug_in_itself = make_loaded(plug_in("plug-in-whole"), &first);
  EXPECT_EQ(other_.emplace("").load(&second), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(""), init_called(""), call_of("init")));
  EXPECT_EQ(plug_in_itself.getClassFactory(), &second);
  EXPECT_EQ(other_->getClassFactory(), &second);
  log_.take();
  other_.reset();
  EXPECT_THAT(log_.take(), ElementsAre(done_called(""), call_of("done"), closing("")));
}
#endif

TEST_F(DynamicModuleLoad, MayBeTriedAgainAfterAFailure) {
  constexpr const char* kPath = "/tmp/late.so";
  CDynamicModule& module = make(kPath);
  EXPECT_EQ(module.load(nullptr), -1);
  EXPECT_THAT(log_.take(), ElementsAre(not_opened(kPath, reason_of(ENOENT))));
  std::filesystem::copy_file(plug_in("plug-in-bare"), kPath);
  EXPECT_EQ(module.load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(kPath)));
  std::filesystem::remove(kPath);
}

// A function that is missing until another plug-in brings it.
TEST_F(DynamicModuleLoad, LooksForFunctionsWhenTheyAreCalledAmongThoseOfAllThatAreLoaded) {
  CDynamicModule& asker = make_loaded(plug_in("plug-in-asker"));
  EXPECT_EQ(other_.emplace(plug_in("plug-in-greeter")).load(nullptr), 0);
  EXPECT_STREQ(static_cast<const char*>(asker.getClassFactory()), "good morning");
  log_.take();
}

TEST_F(DynamicModuleLoad, LoadsWhatTheLibraryIsLinkedWith) {
  CDynamicModule& module = make_loaded(plug_in("plug-in-dependent"));
  EXPECT_STREQ(static_cast<const char*>(module.getClassFactory()), "good morning");
  log_.take();
}

// ---- Whose functions are called ----

using DynamicModuleFunctions = DynamicModule;

TEST_F(DynamicModuleFunctions, AreTheLibrarysOwnAmongSeveralPlugIns) {
  plug_in_argument argument = {};
  EXPECT_EQ(other_.emplace(plug_in("plug-in-whole")).load(&argument), 0);
  const std::string path = plug_in("plug-in-without-init");
  CDynamicModule& module = make_loaded(path);
  EXPECT_THAT(module.getClassFactory(), IsNull());
  EXPECT_EQ(other_->getClassFactory(), &argument);
  EXPECT_THAT(end(), ElementsAre(done_called(path), call_of("done"), closing(path)));

  const std::string bare = plug_in("plug-in-bare");
  EXPECT_EQ(make(bare).load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(bare)));
  EXPECT_THAT(module_->getClassFactory(), IsNull());
  EXPECT_THAT(log_.take(), ElementsAre(without_factory(bare)));
  EXPECT_THAT(end(), ElementsAre(closing(bare)));
}

TEST_F(DynamicModuleFunctions, AreThoseOfWhatTheLibraryIsLinkedWithWhereItHasNone) {
  const std::string path = plug_in("plug-in-heir");
  plug_in_argument argument = {};
  EXPECT_EQ(make(path).load(&argument), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(path), init_called(path), call_of("init")));
  EXPECT_EQ(module_->getClassFactory(), &argument);
  EXPECT_THAT(end(), ElementsAre(done_called(path), call_of("done"), closing(path)));
}

TEST_F(DynamicModuleFunctions, AreMissingWhereNothingIsBehindTheirNames) {
  const std::string path = plug_in("plug-in-null");
  EXPECT_EQ(make(path).load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(path)));
  EXPECT_THAT(module_->getClassFactory(), IsNull());
  EXPECT_THAT(log_.take(), ElementsAre(without_factory(path)));
  EXPECT_THAT(end(), ElementsAre(closing(path)));
}

// ---- getClassFactory() ----

using DynamicModuleFactory = DynamicModule;

TEST_F(DynamicModuleFactory, IsCalledEachTime) {
  const std::string path = plug_in("plug-in-whole");
  plug_in_argument argument = {};
  const CDynamicModule& module = make_loaded(path, &argument);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(module.getClassFactory(), &argument);
    EXPECT_THAT(log_.take(), ElementsAre(factory_called(path), call_of("factory")));
  }
}

TEST_F(DynamicModuleFactory, MayBeNull) {
  const std::string path = plug_in("plug-in-without-init");
  EXPECT_THAT(make_loaded(path).getClassFactory(), IsNull());
  EXPECT_THAT(log_.take(), ElementsAre(factory_called(path), call_of("factory")));
}

TEST_F(DynamicModuleFactory, IsNullBeforeTheLibraryIsLoaded) {
  CDynamicModule& module = make(plug_in("plug-in-whole"));
  EXPECT_THAT(module.getClassFactory(), IsNull());
  EXPECT_THAT(log_.take(), ElementsAre(err("Library not loaded")));
}

TEST_F(DynamicModuleFactory, IsNullAfterAFailure) {
  CDynamicModule& module = make("/tmp/missing.so");
  EXPECT_EQ(module.load(nullptr), -1);
  log_.take();
  EXPECT_THAT(module.getClassFactory(), IsNull());
  EXPECT_THAT(log_.take(), ElementsAre(err("Library not loaded")));
}

TEST_F(DynamicModuleFactory, IsNullWithoutTheFunction) {
  for (const char* const name : {"plug-in-without-factory", "plug-in-bare"}) {
    const std::string path = plug_in(name);
    const CDynamicModule& module = make_loaded(path);
    EXPECT_THAT(module.getClassFactory(), IsNull());
    EXPECT_THAT(log_.take(), ElementsAre(without_factory(path)));
    EXPECT_THAT(module.lastError(), HasSubstr("getClassFactory"));
    end();
  }
}

// ---- lastError() ----

using DynamicModuleLastError = DynamicModule;

TEST_F(DynamicModuleLastError, TellsOnceWhyALibraryCannotBeLoaded) {
  CDynamicModule& module = make("/tmp/missing.so");
  ::dlerror();
  EXPECT_THAT(module.lastError(), IsNull());
  module.load(nullptr);
  log_.take();
  EXPECT_THAT(module.lastError(), HasSubstr("/tmp/missing.so"));
  EXPECT_THAT(module.lastError(), IsNull());
}

TEST_F(DynamicModuleLastError, IsThatOfTheLoader) {
  const CDynamicModule& module = make("");
  look_for_missing_name();
  EXPECT_THAT(module.lastError(), HasSubstr(kMissingName));
}

// ---- Destruction ----

using DynamicModuleEnd = DynamicModule;

TEST_F(DynamicModuleEnd, CallsTheDoneFunctionAndClosesTheLibrary) {
  const std::string path = plug_in("plug-in-whole");
  make_loaded(path);
  EXPECT_THAT(end(), ElementsAre(done_called(path), call_of("done"), closing(path)));
  EXPECT_EQ(is_loaded(path), !kUnloads);
}

TEST_F(DynamicModuleEnd, MayFindNoDoneFunction) {
  for (const char* const name : {"plug-in-without-done", "plug-in-bare"}) {
    const std::string path = plug_in(name);
    make_loaded(path);
    EXPECT_THAT(end(), ElementsAre(closing(path)));
    EXPECT_EQ(is_loaded(path), !kUnloads);
  }
}

TEST_F(DynamicModuleEnd, IsSilentWithoutALibrary) {
  make(plug_in("plug-in-whole"));
  EXPECT_THAT(end(), IsEmpty());
  EXPECT_EQ(make("/tmp/missing.so").load(nullptr), -1);
  EXPECT_THAT(end(), IsEmpty());
}

TEST_F(DynamicModuleEnd, ClosesTheLibraryOnceWithTheHandleThatItHas) {
  const std::string path = plug_in("plug-in-bare");
  make_loaded(path);
  void* const handle = handle_on_loaded(path);
  std::vector<void*> closed;
  {
    const support::FailingDlclose counting([&closed](void* library) {
      closed.push_back(library);
      return 0;
    });
    EXPECT_THAT(end(), ElementsAre(closing(path)));
  }
  EXPECT_THAT(closed, ElementsAre(handle));
  EXPECT_EQ(::dlclose(handle), 0);
  EXPECT_EQ(::dlclose(handle), 0);
}

TEST_F(DynamicModuleEnd, CallsTheFunctionsForEachOfTwoObjects) {
  const std::string path = plug_in("plug-in-whole");
  make_loaded(path);
  EXPECT_EQ(other_.emplace(path).load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(path), init_called(path), call_of("init")));
  EXPECT_THAT(end(), ElementsAre(done_called(path), call_of("done"), closing(path)));
  EXPECT_TRUE(is_loaded(path));
  EXPECT_THAT(other_->getClassFactory(), IsNull());
  EXPECT_THAT(log_.take(), ElementsAre(factory_called(path), call_of("factory")));
  other_.reset();
  EXPECT_THAT(log_.take(), ElementsAre(done_called(path), call_of("done"), closing(path)));
  EXPECT_EQ(is_loaded(path), !kUnloads);
}

TEST_F(DynamicModuleEnd, LetsTheLibraryBeLoadedAgain) {
  const std::string path = plug_in("plug-in-whole");
  make_loaded(path);
  end();
  EXPECT_EQ(make(path).load(nullptr), 0);
  EXPECT_THAT(log_.take(), ElementsAre(opened(path), init_called(path), call_of("init")));
}

// musl destroys nothing before the end of the program.
TEST_F(DynamicModuleEnd, IsNotOverForTheLibrarysDestructors) {
  struct Argument : plug_in_argument {
    CDynamicModule* module;
    int result;
  };
  static Argument argument = {};  // for the end of the program
  const std::string path = plug_in("plug-in-with-destructor");
  argument.module = &make_loaded(path, &argument);
  argument.during_destruction = [](plug_in_argument* given) {
    auto* const self = static_cast<Argument*>(given);
    self->result = self->module->load(self);
  };
  std::vector<LogLine> lines = {closing(path)};
  if (kUnloads) lines.push_back(debug("Dynamic module " + path + " already loaded"));
  EXPECT_EQ(end(), lines);
  EXPECT_EQ(argument.result, kUnloads ? -1 : 0);
  EXPECT_EQ(is_loaded(path), !kUnloads);
  argument.during_destruction = nullptr;
}

// The library stays, for another one is linked with it, but this use of it is over. musl sees no
// error there.
TEST_F(DynamicModuleEnd, WarnsOfALibraryThatIsClosedAlready) {
  const std::string path = plug_in("plug-in-greeter");
  EXPECT_EQ(other_.emplace(plug_in("plug-in-dependent")).load(nullptr), 0);
  make_loaded(path);
  void* const handle = handle_on_loaded(path);
  EXPECT_EQ(::dlclose(handle), 0);
  EXPECT_EQ(::dlclose(handle), 0);
  const std::vector<LogLine> lines = end();
  ASSERT_THAT(lines, testing::SizeIs(kUnloads ? 2 : 1));
  EXPECT_EQ(lines.front(), closing(path));
  if (!kUnloads) return;
  EXPECT_EQ(lines.back().level, LOG_WARNING);
  EXPECT_THAT(lines.back().text, StartsWith("dlclose() failed, rc=-1, dlerror=" + path + ": "));
  EXPECT_THAT(lines.back().text,
              HasSubstr(std::string(", errno=") + std::strerror(0) + " (lib=" + path + ")"));
}

TEST_F(DynamicModuleEnd, WarnsWithTheReasonsOfTheFailure) {
  const std::string path = plug_in("plug-in-bare");
  make_loaded(path);
  look_for_missing_name();
  const std::string reason = ::dlerror();
  const support::FailingDlclose failing([](void*) {
    look_for_missing_name();
    errno = EBUSY;
    return -1;
  });
  EXPECT_THAT(end(), ElementsAre(closing(path),
                                 warning("dlclose() failed, rc=-1, dlerror=" + reason + ", errno=" +
                                         std::strerror(EBUSY) + " (lib=" + path + ")")));
}

TEST_F(DynamicModuleEnd, WarnsWithoutReasons) {
  const std::string path = plug_in("plug-in-whole");
  make_loaded(path);
  errno = EPERM;
  const support::FailingDlclose failing([](void*) {
    ::dlerror();
    return 7;
  });
  EXPECT_THAT(end(), ElementsAre(done_called(path), call_of("done"), closing(path),
                                 warning("dlclose() failed, rc=7, dlerror=<null>, errno=" +
                                         std::string(std::strerror(0)) + " (lib=" + path + ")")));
}

// ---- Threads ----

TEST_F(DynamicModule, NeedsLittleStack) {
  const std::string path = plug_in("plug-in-whole");
  const std::string long_path(60000, '/');
  support::run_on_small_stack([&] {
    CDynamicModule module(path);
    EXPECT_EQ(module.load(nullptr), 0);
    EXPECT_THAT(module.getClassFactory(), IsNull());
    CDynamicModule unopened(long_path);
    EXPECT_EQ(unopened.load(nullptr), -1);
    EXPECT_THAT(unopened.lastError(), NotNull());
  });
  EXPECT_THAT(log_.take(),
              ElementsAre(opened(path), init_called(path), call_of("init"), factory_called(path),
                          call_of("factory"), not_opened(long_path, reason_of(ENAMETOOLONG)),
                          done_called(path), call_of("done"), closing(path)));
}

TEST_F(DynamicModule, ComesToTheEndOfItsCallsWhenItsThreadIsCancelled) {
  const std::string path = plug_in("plug-in-whole");
  EXPECT_TRUE(support::finishes_though_cancelled([&path] {
    CDynamicModule module(path);
    EXPECT_THAT(module.getClassFactory(), IsNull());
    EXPECT_EQ(module.load(nullptr), 0);
    EXPECT_EQ(module.load(nullptr), -1);
    EXPECT_THAT(module.getClassFactory(), IsNull());
  }));
  EXPECT_THAT(
      log_.take(),
      ElementsAre(err("Library not loaded"), opened(path), init_called(path), call_of("init"),
                  debug("Dynamic module " + path + " already loaded"), factory_called(path),
                  call_of("factory"), done_called(path), call_of("done"), closing(path)));
}

}  // namespace
