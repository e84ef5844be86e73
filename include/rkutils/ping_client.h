/*
 * PingClient: asking a host whether it is there, for programs with a loop of their own.
 *
 *     PingClient ping;
 *     if (ping.sendSimplePing("192.0.2.1", "0.0.0.0") != 0) return -1;
 *     for (int i = 0; i < 50; ++i) {
 *       if (ping.checkPingResponse() == 0) return 0;   (it is there)
 *       usleep(20000);                                 (or do something else meanwhile)
 *     }
 *     return -1;                                       (no reply within a second)
 *
 * An object has one request under way at a time: sending the next gives the one before up. Where it
 * goes out, by which interface and gateway, is the kernel's choice, as for any packet. Programs that
 * want to choose, or to wait, use <rkutils/ping.h>.
 *
 * Sending takes a raw socket, for which the program needs the capability CAP_NET_RAW in its network
 * namespace (raw(7)).
 *
 * The request is an ICMP echo request (RFC 792) without data, in an IPv4 packet of 28 bytes with a
 * time to live of 128. The kernel puts an identification and the header's checksum into it.
 *
 * Failures are told by results alone: nothing is logged, and nothing throws.
 *
 * Time. Looking a name up blocks for as long as the C library's gethostbyname() does; it does not
 * look up a target in dotted decimal. Nothing else blocks.
 *
 * Threads and signals: an object is for one thread at a time. Constructors draw from rand(), which
 * belongs to the whole process: two threads may not do the like at once. Signals do not matter, and
 * a request to cancel the thread waits until a call has ended; not for signal handlers. A process
 * that is forked shares the socket, so that one of the two sees each reply.
 */
#ifndef RKUTILS_PING_CLIENT_H
#define RKUTILS_PING_CLIENT_H

#include <rkutils/export.h>
#include <rkutils/string.h>

#include <cstdint>

class RK_API PingClient {
 public:
  /*
   * Without a socket. The identifier of its requests and the sequence number before the first one
   * are the low 16 bits of two numbers of rand(), in this order. A program that has not called
   * srand() has the same in each of its runs.
   */
  PingClient();

  /* Closes the socket. The cleanup() of a derived class is not called any more. */
  virtual ~PingClient();

  PingClient(const PingClient&) = delete;
  PingClient& operator=(const PingClient&) = delete;

  /* The virtual members stay in this order: programs derive from the class. */

  /*
   * Calls cleanup(), and sends one echo request from a new socket, which is closed on exec.
   *
   * `target` is an address in dotted decimal or a name, of whose addresses the first is taken.
   * `source` is the address that the request bears as its sender's, as inet_addr(3) reads it; it
   * should be one of this host, to which the reply can come. For "0.0.0.0" the kernel takes the one
   * that it would choose itself. Of an EMPTY or invalid text it is 255.255.255.255, to which no
   * host replies. Both count up to their first NUL.
   *
   * The identifier is that of the object. The sequence number is one above that of the call before,
   * also if that failed; behind 65535 comes 0.
   *
   * Returns 0 when all of the request was sent, which does not say that the network is fine: a host
   * that is not there is found out later. Returns 1 when
   *   - there is no socket to be had, for one without the capability: the object is without;
   *   - the socket does not take headers of ours, the target is unknown, or the kernel does not send
   *     it: no route, a broadcast address. The socket stays open, as after success.
   */
  virtual int sendSimplePing(String const& target, String const& source);

  /*
   * Looks, without waiting, through what has come since the request was sent or since the last
   * call, up to the reply. All ICMP packets come to the socket, also those for others.
   *
   * Returns 0 when there is a packet with the identifier and the sequence number of the last
   * request, 2 when there is none yet, 3 when receiving fails, for want of a socket or for anything
   * else. After 0 what has come behind the reply is left for the next call.
   *
   * Neither the sender nor the type of the packet is looked at. So a request to an address of this
   * host itself is taken for its reply, which keeps programs working that ask so whether the
   * network is up, and so is an answer of another host with the same numbers. An error message of a
   * gateway is not: it has the request further back.
   */
  virtual unsigned checkPingResponse();

  /* Closes the socket, if there is one: the reply is not wanted any more. */
  virtual void cleanup();

  /*
   * The Internet checksum (RFC 1071) of `length` bytes at `data`, which need no alignment. A last
   * odd byte counts as a word that has it first in memory and zero behind it. 65535 for a length
   * below 1; `data` may be NULL then.
   *
   * Returns the 16 bits as they are to be stored: as an unsigned short, without exchanging bytes.
   * Requests are made without this member: one of a derived class does not change them.
   */
  virtual int checksum(unsigned short* data, int length) const;

 private:
  int socket_; /* -1: none */
  std::uint16_t identifier_;
  std::uint16_t sequence_;
};

#endif
