// configd-stand-in: answers as the configuration daemon does, and misbehaves on command.
//
//   configd-stand-in --control FD [--values FILE] [--record FILE | --record-socket FD]
//
//   --control FD    a connected SOCK_SEQPACKET socket for commands; it sends "ready" once
//                   it serves, and ends when the other end is closed
//   --values FILE   the configuration, lines "key=value"; every batch of assignments is saved to it
//   --record FILE   gets a line for each datagram, "recv CLIENT "BYTES"" or "send CLIENT "BYTES"",
//                   before the reply is sent
//   --record-socket FD
//                   the same to a connected socket
//
// Commands, each answered with "ok" or what is wrong:
//
//   fault COUNT silence|delay MS|reply "BYTES"|shorten N|lengthen N|alter N
//                   spoils the replies to the next COUNT requests; several commands queue up
//   value KEY=VALUE changes a value in memory
//   gone, back      takes the socket away, and brings it back
//
// A request that is not well-formed to the byte gets no reply.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <sys/socket.h>

#include "support/configd/daemon.h"

namespace {

bool parse(int argc, char** argv, stand_in::Options& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--control") == 0) {
      options.control = std::atoi(argv[i + 1]);
    } else if (std::strcmp(argv[i], "--values") == 0) {
      options.values = argv[i + 1];
    } else if (std::strcmp(argv[i], "--record") == 0) {
      options.record.file = argv[i + 1];
    } else if (std::strcmp(argv[i], "--record-socket") == 0) {
      options.record.socket = std::atoi(argv[i + 1]);
    } else {
      return false;
    }
  }
  return argc % 2 == 1 && options.control >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  stand_in::Options options;
  if (!parse(argc, argv, options)) {
    std::fputs(
        "usage: configd-stand-in --control FD [--values FILE] [--record FILE | --record-socket "
        "FD]\n",
        stderr);
    return EXIT_FAILURE;
  }
  try {
    stand_in::Daemon daemon(options);
    ::send(options.control, "ready", std::strlen("ready"), MSG_NOSIGNAL);
    daemon.run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "configd-stand-in: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
