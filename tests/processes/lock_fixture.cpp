#include "lock_fixture.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "support/open_descriptors.h"

namespace {

using rkutils::internal::UniqueFd;

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

[[noreturn]] void live(const std::function<void(Fellow&)>& life, Fellow& test) {
  try {
    life(test);
  } catch (...) {
    ::_exit(1);
  }
  ::_exit(0);
}

}  // namespace

Fellow::Fellow(const std::function<void(Fellow&)>& life) {
  int ends[2] = {};
  check(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
  UniqueFd ours(ends[0]);
  UniqueFd its(ends[1]);
  process_ = ::fork();
  check(process_ >= 0, "fork");
  const bool is_fellow = process_ == 0;
  line_ = std::move(is_fellow ? its : ours);
  if (!is_fellow) return;
  ours.reset();
  live(life, *this);
}

Fellow::~Fellow() { kill(); }

void Fellow::tell(int number) {
  check(::send(line_.get(), &number, sizeof number, MSG_NOSIGNAL) == sizeof number, "send");
}

int Fellow::hear() {
  int number = 0;
  const ssize_t size = ::recv(line_.get(), &number, sizeof number, 0);
  check(size >= 0, "recv");
  if (size != sizeof number) throw std::runtime_error("the fellow has ended");
  return number;
}

void Fellow::kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ends();
}

bool Fellow::ends() {
  int status = -1;
  while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = -1;
  return status == 0;
}

LockTest::LockTest() : descriptors_before_(support::open_descriptors()) { remove_locks(); }

LockTest::~LockTest() { remove_locks(); }

void LockTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

std::vector<int> numbers_of(const std::string& table) {
  std::vector<int> numbers;
  std::ifstream lines("/proc/sysvipc/" + table);
  std::string line;
  std::getline(lines, line);  // the heading
  while (std::getline(lines, line)) {
    long key = 0;
    std::istringstream(line) >> key >> numbers.emplace_back();
  }
  return numbers;
}

void remove_locks() {
  for (const int set : numbers_of("sem")) ::semctl(set, 0, IPC_RMID);
  for (const auto& object : std::filesystem::directory_iterator("/dev/shm")) {
    std::filesystem::remove_all(object.path());
  }
}

int set_of(const std::string& pathname, int project) {
  return ::semget(::ftok(pathname.c_str(), project), 0, 0);
}

int guard_set() { return set_of(kLibrary, 1); }

int leave_new_set(const std::string& pathname, int project) {
  return ::semget(::ftok(pathname.c_str(), project), 1, IPC_CREAT | IPC_EXCL | 0600);
}

int value_of(int set) { return ::semctl(set, 0, GETVAL); }

void set_value(int set, int value) { check(::semctl(set, 0, SETVAL, value) == 0, "semctl"); }

bool add_to(int set, int change) {
  sembuf operation = {0, static_cast<short>(change), 0};
  return ::semop(set, &operation, 1) == 0;
}

void wait_for_waiting(int set, int count) {
  while (::semctl(set, 0, GETNCNT) != count) ::sched_yield();
}

Contended::Contended() {
  void* const memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  check(memory != MAP_FAILED, "mmap");
  shared_ = new (memory) Shared();
}

Contended::~Contended() { ::munmap(shared_, sizeof(Shared)); }

void Contended::increment() {
  if (shared_->inside.exchange(1) != 0) ++shared_->collisions;
  const int before = shared_->count;
  if (before % 16 == 0) ::sched_yield();  // who is let in now would be
  shared_->count = before + 1;
  shared_->inside = 0;
}

support::LogLine err(std::string text) { return {LOG_ERR, std::move(text)}; }
support::LogLine debug(std::string text) { return {LOG_DEBUG, std::move(text)}; }
