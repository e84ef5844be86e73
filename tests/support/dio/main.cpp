// dio-stand-in: is the driver of digital inputs and outputs, and misbehaves on command.
//
//   dio-stand-in --control FD --folder FOLDER [--record FILE | --record-socket FD]
//
//   --control FD     a connected SOCK_SEQPACKET socket for commands; it sends "ready" once it
//                    serves, or "refused: " and the reason where the machine does not allow it, and
//                    ends when the other end is closed
//   --folder FOLDER  where it mounts its file system, which is left to others to unmount
//   --record FILE    gets a line for each operation, before it is over:
//                      opendir PATH ERROR ""       a folder is opened, to be listed
//                      open PATH ERROR "ACCESS"    a file is, to be read ("r"), written ("w"), "rw"
//                      read PATH ERROR "BYTES"     what is in it
//                      write PATH ERROR "BYTES"    what is written into it
//                      close PATH ERROR ""         it is closed
//                    PATH is relative to FOLDER, which is "."; ERROR is errno's number, 0 when it
//                    was done. "readdir" stands there only when it failed.
//   --record-socket FD
//                    the same to a connected socket
//
// An input is a folder din1 with the files "value", which is read, and "frequency". The latter is
// written: "1" begins to measure, or fails with EEXIST when it has begun, "0" ends it, or fails
// with ENOENT, and "-1" asks: it fails with EEXIST for "yes". An output is a folder dout1 with the
// file "value", which takes "0" and "1". Commands, each answered with "ok" or what is wrong:
//
//   add NAME                 a new input or output of this name
//   file NAME                a file of this name, which everybody may read and execute
//   remove PATH              a file or folder goes
//   mode PATH MODE           its mode, in octal
//   contents PATH "BYTES"    what is in a file from now on
//   measured PATH "BYTES"    what is in a frequency file while it is being measured
//   fault OPERATION PATH DONE TIMES error NUMBER|take COUNT
//                            of these operations the first DONE are done, the next TIMES fail with
//                            this error, or take just COUNT bytes; OPERATION is one of those on
//                            record, "readdir", or "look", which is a stat, and for which the
//                            kernel may ask more than once
//   sync                     nothing; what came before it is on record

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <set>
#include <string>
#include <system_error>

#include <poll.h>
#include <sys/socket.h>

#include "support/dio/driver.h"
#include "support/dio/fuse_server.h"
#include "support/stand_in/control.h"
#include "support/stand_in/record.h"

namespace {

struct Options {
  std::string folder;
  stand_in::RecordOptions record;
  int control = -1;
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--control") == 0) {
      options.control = std::atoi(argv[i + 1]);
    } else if (std::strcmp(argv[i], "--folder") == 0) {
      options.folder = argv[i + 1];
    } else if (std::strcmp(argv[i], "--record") == 0) {
      options.record.file = argv[i + 1];
    } else if (std::strcmp(argv[i], "--record-socket") == 0) {
      options.record.socket = std::atoi(argv[i + 1]);
    } else {
      return false;
    }
  }
  return argc % 2 == 1 && options.control >= 0 && !options.folder.empty();
}

// What a machine answers that has no FUSE for us. The rest is a mistake of ours.
bool is_refusal(int error) {
  static const std::set<int> kRefusals = {EACCES, ENODEV, ENOENT, ENOSYS, ENXIO, EPERM};
  return kRefusals.count(error) != 0;
}

void send_text(int socket, const std::string& text) {
  ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
}

void serve(stand_in::Driver& driver, stand_in::FuseServer& server, stand_in::Control& control) {
  for (;;) {
    pollfd entries[] = {{server.descriptor(), POLLIN, 0}, {control.descriptor(), POLLIN, 0}};
    if (::poll(entries, 2, -1) < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    // Requests first: they came before the command that follows them.
    if (entries[0].revents != 0) {
      if (!server.serve()) return;
    } else if (!control.serve(
                   [&](const auto& word, const auto& rest) { driver.obey(word, rest); })) {
      return;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    std::fputs(
        "usage: dio-stand-in --control FD --folder FOLDER [--record FILE | --record-socket FD]\n",
        stderr);
    return EXIT_FAILURE;
  }
  try {
    stand_in::Record record(options.record);
    stand_in::Driver driver(record);
    std::optional<stand_in::FuseServer> server;
    try {
      server.emplace(options.folder, driver);
    } catch (const std::system_error& error) {
      if (!is_refusal(error.code().value())) throw;
      send_text(options.control, std::string("refused: ") + error.what());
      return EXIT_FAILURE;
    }
    stand_in::Control control(options.control);
    send_text(control.descriptor(), "ready");
    serve(driver, *server, control);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dio-stand-in: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
