// wwanmd-stand-in: answers as the modem daemon of a card does, and misbehaves on command.
//
//   wwanmd-stand-in --control FD --card N [--record FILE | --record-socket FD]
//
//   --control FD    a connected SOCK_SEQPACKET socket for commands; it sends "ready" once
//                   it serves, and ends when the other end is closed
//   --card N        listens on /var/run/wwanmdN/server
//   --record FILE   gets a line for each event, before what follows from it:
//                     open TIME CONNECTION ""        an application has connected
//                     recv TIME CONNECTION "BYTES"   bytes have come
//                     send TIME CONNECTION "BYTES"   they go out
//                     gone TIME CONNECTION ""        the application has closed the connection
//                     close TIME CONNECTION ""       the stand-in does
//                   TIME is of the monotonic clock, in microseconds; connections count from 1
//   --record-socket FD
//                   the same to a connected socket
//
// It answers every line with "OK". Commands, each answered with "ok" or what is wrong:
//
//   answer "LINE" "REPLY"   the reply to this line from now on
//   plan COUNT STEP...      what it does instead at each of the next COUNT lines, "init" among them
//   greet COUNT STEP...     what it does when each of the next COUNT applications has connected
//   now STEP...             what it does at once to all connections
//   deaf                    reads nothing any more
//   gone, back              takes the socket away, and brings it back; connections stay
//   sync                    nothing; what came before it is on record
//
// Steps, none for silence:
//
//   answer                  sends the right reply
//   send "BYTES"            sends these, once all that was sent before has been fetched
//   wait MS                 waits
//   close                   closes the connection, and ends the steps

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <sys/socket.h>

#include "support/wwanmd/daemon.h"

namespace {

bool parse(int argc, char** argv, stand_in::ModemOptions& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--control") == 0) {
      options.control = std::atoi(argv[i + 1]);
    } else if (std::strcmp(argv[i], "--card") == 0) {
      options.card = std::atoi(argv[i + 1]);
    } else if (std::strcmp(argv[i], "--record") == 0) {
      options.record.file = argv[i + 1];
    } else if (std::strcmp(argv[i], "--record-socket") == 0) {
      options.record.socket = std::atoi(argv[i + 1]);
    } else {
      return false;
    }
  }
  return argc % 2 == 1 && options.control >= 0 && options.card >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  stand_in::ModemOptions options;
  if (!parse(argc, argv, options)) {
    std::fputs(
        "usage: wwanmd-stand-in --control FD --card N [--record FILE | --record-socket FD]\n",
        stderr);
    return EXIT_FAILURE;
  }
  try {
    stand_in::ModemDaemon daemon(options);
    ::send(options.control, "ready", std::strlen("ready"), MSG_NOSIGNAL);
    daemon.run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wwanmd-stand-in: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
