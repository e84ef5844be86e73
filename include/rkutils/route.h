/*
 * The kernel's routes: which interface an address is reached through; and the multipath flags of
 * interfaces.
 *
 *     struct addrinfo *host;
 *     char interface[IF_NAMESIZE];
 *     if (getaddrinfo("192.0.2.17", NULL, NULL, &host) != 0) return -1;
 *     if (route_get_interface(host, interface) == 0) puts(interface); // wwan0
 *     freeaddrinfo(host);
 *
 * Both ask the routing service of the kernel (rtnetlink(7)) that the calling thread's network
 * namespace has, over a socket of their own which is closed again by the end of the call.
 *
 * Blocking: the kernel acts on a request while it is sent, so that nothing is waited for but its
 * locks, which other changes of interfaces may hold for some milliseconds.
 *
 * Threads and signals: there is no state, so both may be called by several threads at once. A
 * signal handler that runs meanwhile does not end a call, and a request to cancel the thread waits
 * until it has ended. Not for signal handlers. They need some 24 KiB of stack.
 */
#ifndef RKUTILS_ROUTE_H
#define RKUTILS_ROUTE_H

#include <rkutils/export.h>

#ifdef __cplusplus
extern "C" {
#endif

struct addrinfo; /* <netdb.h> */

/*
 * Asks the kernel which interface a packet to an address leaves by, as `ip route get` does: with all
 * rules, tables and caches that count for a packet without a source, a mark or a socket. For an
 * address of the machine itself that is "lo" (IPv4; for IPv6 it may be the interface that has it).
 *
 * Of `address`, one record as from getaddrinfo(3), the family and the address are taken: ai_family,
 * AF_INET or AF_INET6, says what ai_addr points to, a struct sockaddr_in or sockaddr_in6, whatever
 * family is in that. 8 bytes of it, or 24, are read, at any address of memory. The rest does not
 * count: neither port and scope, nor ai_addrlen and ai_next. So a link-local address, fe80::/10, is
 * looked up without its link: the answer is any of the interfaces.
 *
 * The name is written to `interface`, of IF_NAMESIZE (<net/if.h>, 16) bytes.
 *
 * Returns 0; -1, with `interface` untouched: either is NULL, or ai_addr is; the family is another
 * one; or there is no route, the address is unreachable, prohibited or thrown away, the kernel does
 * not answer as it should, the interface is gone meanwhile, or memory or descriptors run out.
 *
 * All is logged at LOG_DEBUG. First "looking up route for 192.0.2.17", and at the end "192.0.2.17
 * goes to wwan0" or one of these:
 *   "rtq: netlink query failed: REASON"    the kernel's reason, as strerror(3) words it: "Network is
 *                                          unreachable" where no route leads there. errno holds it
 *                                          after the call, and 0 if there was none
 *   "rtq: no dest interface found"         there is a route without an interface, or with one that
 *                                          is gone
 *   "rtq: no route received"               an answer of another kind
 *   "rtq: invalid answer"                  an answer that is too short for a route
 *   "rtq: unable to query netlink"         the request could not be sent
 *   "rtq: maxlen exceeded"                 the request would not fit its buffer, which no address is
 *                                          too long for
 * or before it, and then it is not the first:
 *   "rtq: no mem for request"
 *   "rtq: unable to open netlink socket"
 *   "rtq: unable to set buffer size"
 *   "rtq: unable to bind netlink socket"
 *   "rtq: invalid netlink socket"          the socket's own address is none of its kind
 * Nothing is logged for a NULL, or for another family.
 */
RK_API int route_get_interface(const struct addrinfo* address, char* interface);

/*
 * Writes both multipath flags of an interface, of kernels that have multipath transport: whether it
 * is left out of it (`exclude`, the flag 0x80000), and whether it only stands by for the others
 * (`backup`, 0x100000). Zero clears a flag, anything else sets it; all other flags stay.
 *
 * Returns 0 when the request was handed to the kernel, WHATEVER BECAME OF IT: nothing tells if the
 * caller lacks the right to (CAP_NET_ADMIN), or if the kernel does not know these flags. Returns -1,
 * with nothing sent, if no interface has the name, if it is NULL, or if there is no descriptor left.
 * The name of an alias, "wan0:1", stands for its interface. Nothing is logged.
 *
 * The socket takes the process id as its port id where it is free, which some programs expect of
 * their own netlink sockets: such a one cannot be bound while this runs.
 */
RK_API int ip_utils_set_multipath_flags(const char* interface, int exclude, int backup);

#ifdef __cplusplus
}
#endif

#endif
