/*
 * Whether an IPv4 host answers pings (ICMP echo, RFC 792) that go out through one interface.
 *
 *     time_difference took;
 *     if (__rawping("wwan0", "192.0.2.1", "10.64.0.1", NULL, NULL, 2000, -1, &took, NULL) == 0) {
 *       printf("answered after %d.%09d s\n", (int)took.seconds, (int)took.nanoseconds);
 *     }
 *     if (icmpping("eth0", "192.168.1.20", 1000) != 0) puts("no answer in the LAN");
 *
 * icmpping() leaves the way to the kernel's routing table, restricted to one interface. rawping()
 * writes packets itself, and sends them past the routing table where it must: to a host outside the
 * interface's network they go in an Ethernet frame to the gateway's hardware address. So a daemon
 * tests an uplink that is not the one in use.
 *
 * Hosts and gateways are dotted addresses or names. A name is looked up as gethostbyname(3) does it,
 * and its first address is used.
 *
 * Time. One request is sent and its reply waited for: the socket is looked at, and while nothing is
 * there for 300 ms again, until `timeout_ms` and 300 ms have been slept. That is in whole steps, so
 * a call without an answer takes up to 600 ms more than its `timeout_ms`, 900 ms at least; and what
 * comes during the last step is not seen. A reply that is there at once is taken at once. It also
 * ends with the 1024th packet that is not the reply. A signal handler that runs meanwhile changes
 * none of this. Looking names up comes before, and takes what it takes.
 *
 * Privileges. All needs CAP_NET_RAW (capabilities(7)), and __rawping()'s mark may need
 * CAP_NET_ADMIN.
 *
 * Logging. Every step is logged through syslog, progress at LOG_DEBUG and failures at LOG_ERR, in
 * the texts given below, in which a system call's failure stands in parentheses as strerror(3) has
 * it. `timeout_ms` and `size` are brought into their limits silently. errno means nothing
 * afterwards.
 *
 * Threads and signals. There is no state, so several threads may ping at once; but each icmpping()
 * sees the answers to the others that come through its interface, see there. A thread that is
 * cancelled (pthread_cancel(3)) finishes its call first. Not for signal handlers. Sockets are closed
 * on exec.
 */
#ifndef RKUTILS_PING_H
#define RKUTILS_PING_H

#include <rkutils/export.h>
#include <rkutils/text.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Pings `target` through `interface` with 56 bytes of zeros. The kernel writes the IP header, and
 * chooses the route among those of the interface. `timeout_ms`: milliseconds, 500 to 10000; what is
 * less or more counts as these.
 *
 * Identifier and sequence number of the request are 0 and 1 in each call, so the answer to an
 * earlier call that gave up passes for one, and so do answers that other processes asked for, when
 * they come through this interface.
 *
 * Returns 0 when the answer has come. -1, and LOG_ERR
 *   "icmpping: no target given", "icmpping: no interface given": it is NULL or empty;
 *   "icmpping[%s]: invalid target '%s'": the host has no address;
 *   "icmpping: unable to open socket (%s)", "icmpping: can't bind to %s (%s)",
 *   "icmpping: packet transmission failed (%s)", "icmpping: unable to receive reply on %s (%s)";
 *   and nothing, when there was no answer.
 *
 * Logs LOG_DEBUG "icmpping: packet transmitted on %s for %s (%d bytes, id %d, seq %d)" with the
 * sequence number after "id" and the identifier after "seq", as it always did. Of each packet that
 * comes: LOG_ERR "icmpping: packet is too short" below 76 bytes, LOG_ERR "icmpping: packet is not a
 * reply", which on the loopback interface the request itself is, or else LOG_DEBUG "icmpping:
 * RECEIVED icmp reply on %s (seq %d, id %d, need seq %d, id %d)".
 */
RK_API int icmpping(const char* interface, const char* target, unsigned timeout_ms);

/*
 * __rawping() with the interface's own address and netmask, the smallest packet and no mark, and
 * without the time that it took.
 */
RK_API int rawping(const char* interface, const char* target, const char* gateway,
                   unsigned timeout_ms);

/*
 * Pings `target` through `interface` with a packet of its own making. In the messages "rawping[%s]"
 * is the interface.
 *
 *   gateway     the way out of the interface's network. NULL or empty: there is none.
 *   source,     the address to send from and its netmask, dotted. Both NULL: the interface's own.
 *   netmask
 *   timeout_ms  milliseconds, 500 to 10000; what is less or more counts as these
 *   size        bytes of the packet, 48 to 1450; what is less, -1 above all, or more counts as
 *               these
 *   round_trip  gets the time from sending to the packet that was received last, see below; may be
 *               NULL
 *   mark        is set as the firewall mark of the frames to a gateway (SO_MARK, socket(7)), and of
 *               no other packet; may be NULL
 *
 * Two ways lead to the target:
 *
 *   An IP packet, which the kernel routes, through the interface alone. It is the way without a
 *   gateway, to a target within `source` and `netmask`, and always on interfaces that are
 *   point-to-point or have no ARP.
 *
 *   An Ethernet frame to the gateway's hardware address, for any other target. The address is the
 *   one that /proc/net/arp has, complete, for `gateway` in the very text that was passed: only a
 *   dotted gateway is found, and it may be another interface's. If there is none, the gateway is
 *   pinged in an IP packet, which makes the kernel ask for it, and looked up again. If there still
 *   is none, an IP packet goes to the target after all. The gateway's ping and the target's each
 *   take their time.
 *
 * IP packets go out with the address that is given as source. The kernel writes the length, the
 * identification and the checksum of their IP header, so what the library puts there is without
 * effect: its length is 48 for every size. Their identifier and sequence number are in the host's
 * byte order, those of frames in the network's. The identifier is the product of the lower 16 bits
 * of the time of day's seconds and microseconds, and a frame's reply is picked by it in the kernel.
 * The sequence number is 1, or 2 for a target whose gateway was pinged before.
 *
 * `round_trip` ends when the packet is taken from the socket: that of an answer which is not there
 * at the first look has 300 ms or a multiple of it, and what the steps took beyond. It is measured
 * by the time of day for IP packets, and so wrong if somebody sets that clock meanwhile, and by the
 * monotonic clock for frames.
 *
 * It is also written without an answer, whenever a ping was tried, and then is what the subtraction
 * gives: zero if it did not come to sending, the time of sending below zero if nothing was received.
 * When a gateway was pinged first, and its target did not answer, the two times may be of different
 * pings and clocks. Do not use it unless the result is 0.
 *
 * Returns 0 when the answer has come. -1 without one, LOG_DEBUG "rawping[%s]: received no valid ip
 * reply from %s" or "... no valid raw reply from %s"; and on failure, with LOG_ERR
 *   "rawping: no interface given", "rawping: no target given": it is NULL or empty;
 *   "rawping: no source given", "rawping: no netmask given": only one of the two is not NULL, or it
 *   is empty;
 *   "rawping[%s]: invalid target '%s'", "rawping[%s]: invalid gateway '%s'": it has no address;
 *   "rawping[%s]: invalid source '%s'", "rawping[%s]: invalid netmask '%s'": it is not dotted. THIS
 *   LEAVES A SOCKET OPEN each time, for compatibility: check what users enter before;
 *   "rawping[%s]: unable to create socket (%s)", "rawping[%s]: can't get interface index (%s)",
 *   "... interface address (%s)", "... interface netmask (%s)", "... interface hwaddr (%s)";
 *   "rawping[%s]: unable to open socket (%s)", "rawping[%s]: can't bind to device (%s)",
 *   "rawping[%s]: can't configure socket (%s)", "rawping[%s]: unable to set filter (%s)",
 *   "rawping[%s]: unable to set mark (%s)", "rawping[%s]: unable to bind socket (%s)";
 *   "rawping[%s]: unable to send %d bytes to %s (%s)", of a frame "rawping[%s]: cannot send %d
 *   bytes to %s (%s)", "rawping[%s]: unable to receive reply (%s)".
 *   One option of the IP packet's socket that cannot be set fails silently.
 *
 * Other messages, LOG_ERR: "unable to create socket" and "unable to get flags for %s" when it
 * cannot be told whether the interface is point-to-point (it counts as not); "rawping[%s]: can't
 * resolve HW address for %s" when the gateway's ping did not help.
 *
 * LOG_DEBUG, on the way: "rawping[%s]: interface runs %s/%s (%s)"; "gateway %s (source %08X, mask
 * %08X, dest %08X, is_ptp %d)", with "none" for NULL; "rawping[%s]: cannot ping %s directly, must
 * use gateway %s"; "rawping[%s]: discovered %s for %s"; "rawping[%s]: can't resolve HW address for
 * %s -> send query"; "rawping[%s]: hostbyname for %s failed"; "rawping[%s]: pinging %s";
 * "rawping[%s] => ARP lookup failed, sending ip ping to %s"; "rawping[%s] => sending ip ping to
 * %s", which is left out for a NULL gateway; "rawping[%s] => sending raw ping to %s".
 *
 * LOG_DEBUG, of each packet: "rawping[%s]: generated ip echo packet for %s", "rawping[%s]: ip packet
 * transmitted for %s (%d bytes)", of a frame "rawping[%s]: generated raw echo packet for %s (id %d,
 * seq %d)", "rawping[%s]: raw packet transmitted for %s (%d bytes)"; "rawping[%s]: received ip
 * packet (%d bytes)" with a newline at its end, "rawping[%s]: received packet (seq %d, id %d, need
 * seq %d, id %d)"; "rawping[%s]: packet is too short (%d bytes, need %ld bytes)", "rawping[%s]: not
 * for us (%s != %s)", "rawping[%s]: not from target (%s != %s)", "rawping[%s]: not an ICMP message",
 * of a frame "rawping[%s]: not an ICMP message (proto %d)", "rawping[%s]: not an ICMP REPLY
 * message"; "rawping[%s]: RECEIVED ip reply (seq %d, id %d, need seq %d, id %d)" or "... raw reply
 * ..."; "rawping[%s]: ip ping to %s succeeded" or "... raw ping ...".
 *
 * Where a packet is generated, transmitted or cannot be sent hosts are dotted, in all other messages
 * they are what was passed.
 */
RK_API int __rawping(const char* interface, const char* target, const char* gateway,
                     const char* source, const char* netmask, unsigned timeout_ms, int size,
                     time_difference* round_trip, const uint32_t* mark);

#ifdef __cplusplus
}
#endif

#endif
