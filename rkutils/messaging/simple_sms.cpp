#include <rkutils/command.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/scope_guard.h>
#include <rkutils/internal/temporary_file.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/messaging/sms_header.h>
#include <rkutils/simple_sms.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using rkutils::internal::ErrnoRestorer;
using rkutils::internal::make_temporary_file;
using rkutils::internal::next_entry;
using rkutils::internal::open_directory;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::ScopeGuard;
using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;

constexpr const char* kSpool = "/var/spool/sms/incoming/";

// Whether a file in the spool may have that name.
bool is_file_name(std::string_view id) {
  return !id.empty() && id.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// Whether all was written. The file is closed in any case.
bool write_outgoing(UniqueFd file, const CSimpleSMS& sms) {
  const auto write = [&file](const char* text) {
    return rkutils::file::write_all(file.get(), text, std::strlen(text));
  };
  const bool written = write("To: ") && write(sms.address.c_str()) && write("\n\n") &&
                       write(sms.text.c_str()) && write("\n");
  // Where others keep the file, closing may tell that their disk is full.
  const bool closed = ::close(file.release()) == 0;
  return written && closed;
}

// Reads a file to its end; 0, or the error that kept it from that.
int read_whole(const char* path, std::string& contents) {
  const UniqueFd file = rkutils::file::open_to_read(path);
  if (!file) return errno;
  for (;;) {
    char piece[4096];
    const ssize_t count = rkutils::file::read_some(file.get(), piece, sizeof piece);
    if (count < 0) return errno;
    if (count == 0) return 0;
    contents.append(piece, static_cast<std::size_t>(count));
  }
}

int read_incoming(const std::string& id, const std::string& path, std::string& contents) {
  return is_file_name(id) ? read_whole(path.c_str(), contents) : ENOENT;
}

void take_header(std::string_view header, CSimpleSMS& sms) {
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find('\n'));
    if (!rkutils::sms::take_header_line(line, sms)) {
      ::syslog(LOG_DEBUG, "sms: Ignoring unrecognized line : \"%s\"", std::string(line).c_str());
    }
    header.remove_prefix(std::min(line.size() + 1, header.size()));
  }
}

}  // namespace

CSimpleSMS::CSimpleSMS() = default;

CSimpleSMS::CSimpleSMS(std::string const& recipient, std::string const& body)
    : address(recipient), text(body) {}

// Programs know it by its name without const.
// NOLINTNEXTLINE(readability-make-member-function-const)
int CSimpleSMS::send() {
  const PostponedCancellation postponed;
  // The last word of the command is completed: it is the file's path.
  char command[] = "/usr/local/sbin/send-sms /tmp/outgoing-sms.XXXXXX";
  char* const path = std::strchr(command, ' ') + 1;
  UniqueFd file = make_temporary_file(path);
  if (!file) return -1;
  ScopeGuard remove_file([path] {
    const ErrnoRestorer keep_errno;
    ::unlink(path);
  });
  if (!write_outgoing(std::move(file), *this)) return -1;
  if (::run_command(command, 0) != 0) return -1;
  remove_file.dismiss();
  return 0;
}

void CSimpleSMS::RetrieveIncomingIds(std::vector<std::pair<long, std::string>>& ids) {
  const PostponedCancellation postponed;
  UniqueDir spool = open_directory(kSpool);
  if (spool == nullptr) return;
  while (const dirent* const entry = next_entry(spool.get())) {
    if (entry->d_type != DT_REG) continue;
    struct stat status;
    if (::fstatat(::dirfd(spool.get()), entry->d_name, &status, 0) == 0) {
      ids.emplace_back(static_cast<long>(status.st_ctime), entry->d_name);
    } else {
      ::syslog(LOG_DEBUG, "Unable to stat %s%s - errno=%s", kSpool, entry->d_name,
               std::strerror(errno));
    }
  }
  if (::closedir(spool.release()) != 0) {
    ::syslog(LOG_ERR, "Unable to close the directory %s", kSpool);
  }
}

CSimpleSMS* CSimpleSMS::getIncomingSMSById(std::string const& id) {
  const PostponedCancellation postponed;
  const std::string path = kSpool + id;
  std::string contents;
  const int error = read_incoming(id, path, contents);
  const std::size_t header_end = contents.find("\n\n");
  if (error != 0 || header_end == std::string::npos) {
    ::syslog(LOG_DEBUG, "sms: file \"%s\" not existing or invalid, errno=%s", path.c_str(),
             std::strerror(error));
    return nullptr;
  }
  std::unique_ptr<CSimpleSMS> sms(new (std::nothrow) CSimpleSMS);
  if (sms == nullptr) {
    ::syslog(LOG_ERR, "sms: Unable to allocate sms - out of memory!?");
    return nullptr;
  }
  sms->text.assign(contents, header_end + 2, std::string::npos);
  take_header(std::string_view(contents).substr(0, header_end), *sms);
  return sms.release();
}

int CSimpleSMS::DeleteIncomingSMSById(std::string const& id) {
  if (!is_file_name(id)) {
    errno = ENOENT;
    return -1;
  }
  return ::unlink((kSpool + id).c_str());
}
