// Opening and closing a connection, and the raw sending and receiving on it.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "configd_fixture.h"
#include "support/allocation_faults.h"
#include "support/stopwatch.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"

namespace {

using support::open_descriptors;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string expected_client_path(const configd_connection* connection) {
  char path[256];
  std::snprintf(path, sizeof path, "/var/run/configd/client.%d.%p", static_cast<int>(::getpid()),
                static_cast<const void*>(connection));
  return path;
}

// The one descriptor that is open now and was not before.
int new_descriptor(const std::map<int, std::string>& before) {
  for (const auto& [descriptor, target] : open_descriptors()) {
    if (before.count(descriptor) == 0) return descriptor;
  }
  return -1;
}

class ConfigdOpen : public ConfigdTest {};

TEST_F(ConfigdOpen, BindsTheClientPathMadeOfProcessAndHandle) {
  const Connection connection = connect();
  EXPECT_EQ(client_file(), expected_client_path(connection.get()));
}

TEST_F(ConfigdOpen, LetsEveryoneWriteToTheClientSocketWhateverTheUmask) {
  const mode_t umask_before = ::umask(077);
  const Connection connection = connect();
  ::umask(umask_before);
  struct stat status = {};
  ASSERT_EQ(::stat(client_file().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777U, 0777U);
}

TEST_F(ConfigdOpen, OpensOneDatagramSocketThatIsClosedOnExec) {
  const auto before = open_descriptors();
  const Connection connection = connect();
  EXPECT_THAT(open_descriptors(), SizeIs(before.size() + 1));
  const int socket = new_descriptor(before);
  EXPECT_EQ(::fcntl(socket, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  int type = 0;
  socklen_t length = sizeof type;
  ASSERT_EQ(::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &length), 0);
  EXPECT_EQ(type, SOCK_DGRAM);
}

TEST_F(ConfigdOpen, SucceedsWithoutADaemon) {
  daemon_->kill();
  EXPECT_NE(connect(), nullptr);
}

TEST_F(ConfigdOpen, WithoutMemoryLogsAndReturnsNull) {
  const support::FailingAllocation no_memory(1);
  EXPECT_EQ(configd_open(), nullptr);
  EXPECT_TRUE(no_memory.happened());
  EXPECT_THAT(log_.take(), ElementsAre(err("no mem for configd connection")));
}

TEST_F(ConfigdOpen, WithoutADescriptorLogsAndReturnsNull) {
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(configd_open(), nullptr);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot open socket to configd")));
}

TEST_F(ConfigdOpen, WithoutTheDaemonsFolderLogsAndReturnsNull) {
  daemon_->kill();
  std::filesystem::remove_all("/var/run/configd");
  EXPECT_EQ(configd_open(), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot bind to configd")));
}

TEST_F(ConfigdOpen, TwoHandlesOfAProcessHaveSocketsOfTheirOwn) {
  const Connection one = connect();
  const Connection two = connect();
  EXPECT_THAT(client_files(), SizeIs(2));
  daemon_->set_value("lan.address", "192.0.2.1");
  auto first = entries({{"lan.address", ""}});
  auto second = entries({{"lan.address", ""}});
  EXPECT_EQ(configd_get(one.get(), first.data()), 0);
  EXPECT_EQ(configd_get(two.get(), second.data()), 0);
  EXPECT_STREQ(first[0].value, "192.0.2.1");
  EXPECT_STREQ(second[0].value, "192.0.2.1");
  const auto datagrams = daemon_->datagrams();
  ASSERT_THAT(datagrams, SizeIs(4));
  EXPECT_EQ(datagrams[0].client, expected_client_path(one.get()));
  EXPECT_EQ(datagrams[2].client, expected_client_path(two.get()));
}

TEST_F(ConfigdOpen, OpensThoughCancelled) {
  Connection connection;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { connection.reset(configd_open()); }));
  ASSERT_NE(connection, nullptr);
  expect_exchange_succeeds(connection.get());
  int result = -1;
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { result = __configd_open(connection.get()); }));
  EXPECT_EQ(result, 0);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdOpen, FailsThoughCancelled) {
  Connection connection = connect();
  __configd_close(connection.get());
  bool finished = false;
  {
    const support::NoMoreDescriptors no_more;
    finished = support::finishes_though_cancelled([&] { __configd_open(connection.get()); });
  }
  EXPECT_TRUE(finished);
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot open socket to configd")));
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    const support::FailingAllocation handle(1);
    connection.reset(configd_open());
  }));
  EXPECT_EQ(connection, nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err("no mem for configd connection")));
}

class ConfigdReopen : public ConfigdTest {};

TEST_F(ConfigdReopen, OfNullIsMinus1) { EXPECT_EQ(__configd_open(nullptr), -1); }

TEST_F(ConfigdReopen, ClosesTheOldSocketFirst) {
  const Connection connection = connect();
  const auto descriptors = open_descriptors();
  const ino_t socket_before = client_socket_id();
  EXPECT_EQ(__configd_open(connection.get()), 0);
  EXPECT_THAT(open_descriptors(), SizeIs(descriptors.size()));
  EXPECT_NE(client_socket_id(), socket_before);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdReopen, RemovesAStaleFileAtItsPath) {
  const Connection connection = connect();
  const std::string path = client_file();
  __configd_close(connection.get());
  std::ofstream(path) << "left by a process with the same id";
  EXPECT_EQ(__configd_open(connection.get()), 0);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdReopen, RemovesAStaleSocketAtItsPath) {
  const Connection connection = connect();
  const std::string path = client_file();
  __configd_close(connection.get());
  ASSERT_EQ(::mknod(path.c_str(), S_IFSOCK | 0600, 0), 0);
  EXPECT_EQ(__configd_open(connection.get()), 0);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdReopen, LeavesAFileThatItCannotReadAndFails) {
  const Connection connection = connect();
  __configd_close(connection.get());
  const std::string path = expected_client_path(connection.get());
  std::ofstream(path) << "not to be read";
  ::chmod(path.c_str(), 0);
  int result = 0;
  support::run_without_override([&] {
    EXPECT_NE(::access(path.c_str(), R_OK), 0);
    result = __configd_open(connection.get());
  });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(std::filesystem::remove(path));
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot bind to configd")));
}

TEST_F(ConfigdReopen, FailsWhenAFolderIsInTheWayAndCanBeTriedAgain) {
  const Connection connection = connect();
  const std::string path = client_file();
  __configd_close(connection.get());
  std::filesystem::create_directory(path);
  const auto descriptors = open_descriptors();
  EXPECT_EQ(__configd_open(connection.get()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot bind to configd")));
  EXPECT_EQ(open_descriptors(), descriptors);
  std::filesystem::remove(path);
  EXPECT_EQ(__configd_open(connection.get()), 0);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdReopen, WithoutADescriptorFailsAndCanBeTriedAgain) {
  const Connection connection = connect();
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(__configd_open(connection.get()), -1);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot open socket to configd")));
  EXPECT_THAT(client_files(), IsEmpty());
  EXPECT_EQ(__configd_open(connection.get()), 0);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdReopen, KeepsTheQueriesAndTakesThemWhileClosed) {
  const Connection connection = connect();
  daemon_->set_value("lan.address", "192.0.2.1");
  __configd_close(connection.get());
  ASSERT_EQ(configd_add_query(connection.get(), "lan.address"), 0);
  EXPECT_EQ(__configd_open(connection.get()), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "lan.address"), "192.0.2.1");
}

class ConfigdShut : public ConfigdTest {};

TEST_F(ConfigdShut, OfNullDoesNothing) {
  __configd_close(nullptr);
  configd_close(nullptr);
}

TEST_F(ConfigdShut, ClosesTheSocketAndRemovesItsFile) {
  const auto before = open_descriptors();
  const Connection connection = connect();
  __configd_close(connection.get());
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_THAT(client_files(), IsEmpty());
}

TEST_F(ConfigdShut, OfAClosedConnectionDoesNothing) {
  const Connection connection = connect();
  __configd_close(connection.get());
  const auto descriptors = open_descriptors();
  __configd_close(connection.get());
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(ConfigdShut, ForgetsItsPathsSoThatASecondTimeRemovesNothing) {
  const Connection connection = connect();
  const std::string path = client_file();
  __configd_close(connection.get());
  std::ofstream(path) << "another's";
  __configd_close(connection.get());
  EXPECT_TRUE(std::filesystem::remove(path));
}

TEST_F(ConfigdShut, ForgetsItsPathsAfterAFailedBindToo) {
  const Connection connection = connect();
  const std::string path = client_file();
  __configd_close(connection.get());
  std::filesystem::create_directory(path);
  EXPECT_EQ(__configd_open(connection.get()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot bind to configd")));
  std::filesystem::remove(path);
  std::ofstream(path) << "another's";
  __configd_close(connection.get());
  EXPECT_TRUE(std::filesystem::remove(path));
}

TEST_F(ConfigdShut, InAForkedChildTakesTheParentsSocketFile) {
  const Connection connection = connect();
  const pid_t child = ::fork();
  if (child == 0) {
    __configd_close(connection.get());
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_THAT(client_files(), IsEmpty());
}

TEST_F(ConfigdShut, LeavesADescriptorOfOneOpen) {
  const int standard_output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  ASSERT_GE(standard_output, 0);
  std::fflush(stdout);
  ::close(STDOUT_FILENO);
  const Connection connection = connect();  // gets the lowest free descriptor
  const bool was_socket = ::fcntl(STDOUT_FILENO, F_GETFD) != -1;
  __configd_close(connection.get());
  const bool still_open = ::fcntl(STDOUT_FILENO, F_GETFD) != -1;
  const int sent = configd_send(connection.get(), "?a\n", 4);
  ::dup2(standard_output, STDOUT_FILENO);
  ::close(standard_output);
  EXPECT_TRUE(was_socket);
  EXPECT_TRUE(still_open);
  EXPECT_EQ(sent, -1) << "the handle must have forgotten the socket";
  EXPECT_THAT(client_files(), IsEmpty());
}

TEST_F(ConfigdShut, OfAHandleFreesItsQueries) {
  Connection connection = connect();
  for (int i = 0; i < 100; ++i) ASSERT_EQ(configd_add_query(connection.get(), "key.%d", i), 0);
  connection.reset();  // the leak checker sees what is forgotten
}

TEST_F(ConfigdShut, OfAHandleThatCouldNotBeReopenedReleasesIt) {
  Connection connection = connect();
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(__configd_open(connection.get()), -1);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot open socket to configd")));
  connection.reset();
}

TEST_F(ConfigdShut, ClosesThoughCancelled) {
  Connection connection = connect();
  EXPECT_TRUE(support::finishes_though_cancelled([&] { __configd_close(connection.get()); }));
  EXPECT_THAT(client_files(), IsEmpty());
  connection = connect();
  EXPECT_TRUE(support::finishes_though_cancelled([&] { connection.reset(); }));
  EXPECT_THAT(client_files(), IsEmpty());
}

class ConfigdSend : public ConfigdTest {};

TEST_F(ConfigdSend, SendsTheBytesAsTheyAre) {
  const Connection connection = connect();
  const std::string request = bytes("?lan.address\n\0");
  const int length = static_cast<int>(request.size());
  EXPECT_EQ(configd_send(connection.get(), request.data(), length), length);
  char reply[64];
  EXPECT_EQ(configd_recv(connection.get(), reply, sizeof reply), 2);
  EXPECT_THAT(daemon_->requests(), ElementsAre(request));
}

TEST_F(ConfigdSend, RefusesBadArguments) {
  const Connection connection = connect();
  EXPECT_EQ(configd_send(nullptr, "x", 1), -1);
  EXPECT_EQ(configd_send(connection.get(), nullptr, 1), -1);
  EXPECT_EQ(configd_send(connection.get(), "x", 0), -1);
  EXPECT_EQ(configd_send(connection.get(), "x", -1), -1);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdSend, OnAClosedConnectionIsMinus1) {
  const Connection connection = connect();
  __configd_close(connection.get());
  EXPECT_EQ(configd_send(connection.get(), "x", 1), -1);
}

TEST_F(ConfigdSend, WithoutADaemonIsMinus1AndKeepsTheSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->kill();
  EXPECT_EQ(configd_send(connection.get(), "x", 1), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(client_socket_id(), socket_before);
}

TEST_F(ConfigdSend, LeavesSigpipeAlone) {
  std::signal(SIGPIPE, SIG_IGN);
  const Connection connection = connect();
  daemon_->kill();
  EXPECT_EQ(configd_send(connection.get(), "x", 1), -1);
  EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

// The kernel queues a few datagrams for a daemon that does not fetch them; then sending waits.
TEST_F(ConfigdSend, WaitsForAHungDaemonThroughSignals) {
  const Connection connection = connect();
  daemon_->command("fault 40 silence");  // or it would wait for us to fetch its replies
  ::kill(daemon_->process(), SIGSTOP);
  std::thread waker([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    ::kill(daemon_->process(), SIGCONT);
  });
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval every_50_ms = {{0, 50000}, {0, 50000}};
  ::setitimer(ITIMER_REAL, &every_50_ms, nullptr);
  const support::Stopwatch watch;
  for (int i = 0; i < 40; ++i) EXPECT_EQ(configd_send(connection.get(), "?a\n", 4), 4);
  EXPECT_GE(watch.elapsed(), std::chrono::milliseconds(500));
  const itimerval off = {};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  waker.join();
}

class ConfigdRecv : public ConfigdTest {
 protected:
  // Makes the daemon answer with `reply`.
  void provoke(configd_connection* connection, const std::string& quoted_reply) {
    daemon_->command("fault 1 reply " + quoted_reply);
    ASSERT_EQ(configd_send(connection, "?a\n", 4), 4);
  }
};

TEST_F(ConfigdRecv, FillsWhatFollowsTheDatagramWithZeros) {
  const Connection connection = connect();
  provoke(connection.get(), R"("abc")");
  std::string buffer(16, '#');
  EXPECT_EQ(configd_recv(connection.get(), buffer.data(), 10), 3);
  EXPECT_EQ(buffer, bytes("abc\0\0\0\0\0\0\0######"));
}

TEST_F(ConfigdRecv, CutsADatagramToSizeMinus1) {
  const Connection connection = connect();
  provoke(connection.get(), R"("abcdef")");
  std::string buffer(8, '#');
  EXPECT_EQ(configd_recv(connection.get(), buffer.data(), 4), 3);
  EXPECT_EQ(buffer, bytes("abc\0####"));
}

TEST_F(ConfigdRecv, OfOneByteReceivesNothingButTheNul) {
  const Connection connection = connect();
  provoke(connection.get(), R"("abc")");
  std::string buffer(4, '#');
  EXPECT_EQ(configd_recv(connection.get(), buffer.data(), 1), 0);
  EXPECT_EQ(buffer, bytes("\0###"));
}

TEST_F(ConfigdRecv, OfAnEmptyDatagramIs0) {
  const Connection connection = connect();
  provoke(connection.get(), R"("")");
  char buffer[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(configd_recv(connection.get(), buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "");
}

TEST_F(ConfigdRecv, RefusesBadArgumentsAndLeavesSigpipeAlone) {
  std::signal(SIGPIPE, SIG_IGN);
  const Connection connection = connect();
  char buffer[4];
  EXPECT_EQ(configd_recv(nullptr, buffer, sizeof buffer), -1);
  EXPECT_EQ(configd_recv(connection.get(), nullptr, sizeof buffer), -1);
  EXPECT_EQ(configd_recv(connection.get(), buffer, 0), -1);
  EXPECT_EQ(configd_recv(connection.get(), buffer, -1), -1);
  __configd_close(connection.get());
  EXPECT_EQ(configd_recv(connection.get(), buffer, sizeof buffer), -1);
  EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

TEST_F(ConfigdRecv, SetsSigpipeToItsDefaultWhateverItWas) {
  const Connection connection = connect();
  for (const auto disposition : {SIG_IGN, SIG_DFL}) {
    provoke(connection.get(), R"("abc")");
    std::signal(SIGPIPE, disposition);
    char buffer[8];
    EXPECT_EQ(configd_recv(connection.get(), buffer, sizeof buffer), 3);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  }
}

TEST_F(ConfigdRecv, DoesNotAskWhoSentTheDatagram) {
  const Connection connection = connect();
  const rkutils::internal::UniqueFd stranger(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address;
  ASSERT_TRUE(rkutils::internal::make_unix_address(client_file().c_str(), address));
  ASSERT_EQ(::sendto(stranger.get(), "abc", 3, 0, rkutils::internal::as_sockaddr(address),
                     sizeof address),
            3);
  char buffer[8];
  EXPECT_EQ(configd_recv(connection.get(), buffer, sizeof buffer), 3);
  EXPECT_STREQ(buffer, "abc");
}

// A daemon may have closed its standard input.
TEST_F(ConfigdRecv, WorksOnDescriptorZero) {
  const rkutils::internal::UniqueFd standard_input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  ::close(STDIN_FILENO);
  const auto before = open_descriptors();
  Connection connection = connect();
  EXPECT_EQ(new_descriptor(before), 0);
  expect_exchange_succeeds(connection.get());
  connection.reset();
  ::dup2(standard_input.get(), STDIN_FILENO);
}

TEST_F(ConfigdRecv, WorksOnADescriptorBeyond1024) {
  rlimit limits = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limits), 0);
  limits.rlim_cur = std::max<rlim_t>(limits.rlim_cur, 2048);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limits), 0);
  std::vector<int> fillers;
  while (fillers.empty() || fillers.back() < 1100) {
    fillers.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_GE(fillers.back(), 0);
  }
  const Connection connection = connect();
  expect_exchange_succeeds(connection.get());
  for (const int filler : fillers) ::close(filler);
}

TEST_F(ConfigdRecv, ExchangesThoughCancelled) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  int sent = -1;
  int received = -1;
  std::string buffer(16, '#');
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { sent = configd_send(connection.get(), "?a\n", 4); }));
  EXPECT_EQ(sent, 4);
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { received = configd_recv(connection.get(), buffer.data(), 16); }));
  EXPECT_GT(received, 0);
  EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
}

}  // namespace
