/*
 * IPv4 and IPv6 addresses in socket address form: converted from text and to text, compared,
 * masked; and dotted quads to and from 32-bit numbers.
 *
 *     struct sockaddr_in lan, mask;
 *     char network[CIDR_TEXT_SIZE];
 *     if (str2addr4("192.0.2.17", (struct sockaddr *)&lan) != 0) return -1;
 *     cidr2netmask(24, (struct sockaddr *)&mask, AF_INET);
 *     puts(net2cidr(network, (struct sockaddr *)&lan, (struct sockaddr *)&mask)); // 192.0.2.0/24
 *
 * Records. A `struct sockaddr *` points to a struct sockaddr_in or sockaddr_in6, and the family in
 * it tells which: AF_INET or AF_INET6; of any other family there is no address. Only the family and
 * the address are read and written, never port, flow information or scope. So much of a record must
 * be there: 8 bytes of an IPv4 one, 24 of an IPv6 one, unless a function says less or more; and the
 * family alone where it is another. Records may stand at any address of memory, aligned or not.
 *
 * A record that is written may become an IPv6 one by what a text says: give str2addr() and
 * readaddress() a struct sockaddr_in6 or sockaddr_storage.
 *
 * A netmask is a record with the mask in the place of the address: leading ones, then zeros
 * (RFC 4632, RFC 4291).
 *
 * Texts are those of inet_pton(3) and inet_ntop(3). The destinations of texts are not given with
 * their sizes: the constants below are large enough.
 *
 * Failures are results and nothing else: nothing is logged, and errno means nothing.
 *
 * Blocking: nothing waits, but readaddress() for the medium. Threads and signals: there is no
 * state, so all may be called by several threads at once, but for readaddress(), whose buffer is
 * readfile()'s. Not for signal handlers.
 */
#ifndef RKUTILS_ADDRESS_H
#define RKUTILS_ADDRESS_H

#include <rkutils/export.h>

#include <stdint.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes that texts take at most, with their NUL. */
enum {
  IPV4_TEXT_SIZE = 16,    /* an IPv4 address: str2addr4()'s texts, convIPUL2IPStr() */
  ADDRESS_TEXT_SIZE = 46, /* an address of either kind: addr2str() */
  NETWORK_TEXT_SIZE = 96, /* an address, "/" and a mask: net2str() */
  CIDR_TEXT_SIZE = 93     /* an address, "/" and a prefix length: net2cidr() */
};

/*
 * A route, as route_differs() compares it. A slot holds an IPv4 address whole; an IPv6 address
 * would reach into the next slot, and from the last one out of the record.
 */
typedef struct address_route {
  uint32_t id; /* not compared */
  struct sockaddr address[3];
} address_route;

/* ---- Comparing ---- */

/*
 * Compares two addresses. Either may be NULL.
 *
 * Returns 1 if they differ: one is NULL and the other is not, the families are not the same, or the
 * addresses are not. Returns 0 if they are equal, and also for two records of the same family other
 * than AF_INET and AF_INET6, whatever is in them, and for two NULLs.
 */
RK_API int addr_differs(const struct sockaddr* a, const struct sockaddr* b);

/*
 * Compares the addresses of two routes, slot by slot as addr_differs() does. Either may be NULL.
 *
 * Returns 1 if one is NULL and the other is not, or if any of the slots differ; 0 otherwise, and
 * for two NULLs. Nothing behind a route is read: of an IPv6 address in the last slot, the first 8
 * bytes count.
 */
RK_API int route_differs(const address_route* a, const address_route* b);

/* ---- To text ---- */

/*
 * Writes an address as inet_ntop() does to `dst`, of IPV4_TEXT_SIZE bytes for an IPv4 address and
 * ADDRESS_TEXT_SIZE for any.
 *
 * Returns `dst`, with the empty text for a family that has no address. NULL if an argument is NULL.
 */
RK_API char* addr2str(char* dst, const struct sockaddr* record);

/*
 * Writes an address and a mask, "192.0.2.0/255.255.255.0", to `dst` of NETWORK_TEXT_SIZE bytes:
 * each as addr2str() does, so that one of a family without addresses leaves its side of the slash
 * empty. The two need not fit each other, and the address is not masked.
 *
 * Returns `dst`; NULL, with `dst` untouched, if an argument is NULL.
 */
RK_API char* net2str(char* dst, const struct sockaddr* address, const struct sockaddr* mask);

/*
 * Writes the network that an address is in, "192.0.2.0/24", to `dst` of CIDR_TEXT_SIZE bytes: the
 * address without its host part, and the length of the mask's prefix.
 *
 * Only the first 16 bytes of `address` are read. That is all of an IPv4 address, but OF AN IPv6
 * ADDRESS THE FIRST 64 BITS ALONE, AND THE OTHERS COUNT AS ZERO: right for prefixes up to 64,
 * while 2001:db8::1 with a mask of 128 bits gives "2001:db8::/128". Programs know it so. `mask` is
 * read whole.
 *
 * Returns `dst`; NULL, with `dst` untouched: an argument is NULL, the families differ or have no
 * addresses, or the mask is none.
 */
RK_API char* net2cidr(char* dst, const struct sockaddr* address, const struct sockaddr* mask);

/* ---- From text ---- */

/*
 * Makes an IPv4 record of a text in the form that inet_pton() takes, four numbers without leading
 * zeros and nothing around them. The family is set to AF_INET in any case; the address only on
 * success.
 *
 * Returns 0; -1 for another text or NULL, and for a NULL `record`.
 */
RK_API int str2addr4(const char* text, struct sockaddr* record);

/* The same for an IPv6 address, and the family AF_INET6. A "%" and a scope are not taken. */
RK_API int str2addr6(const char* text, struct sockaddr* record);

/*
 * str2addr6() for a text with a colon in it, and str2addr4() for any other. With a NULL argument it
 * is -1, and `record` is untouched.
 */
RK_API int str2addr(const char* text, struct sockaddr* record);

/*
 * Makes a record of the address in a one-line file. White space around it does not matter.
 *
 * The first 16 bytes of `out` are zeroed before the file is read, port included; then it is
 * str2addr(). What lies behind the 16 bytes is only touched by an IPv6 address.
 *
 * Returns 0; -1 if the file is not readable, empty, or holds anything else (`out` is zeroed then,
 * and has a family if there was any text); -1 with `out` untouched for a NULL argument.
 *
 * Overwrites the result of readfile() (<rkutils/file.h>), and is for one thread at a time like it.
 */
RK_API int readaddress(const char* path, struct sockaddr* out);

/* ---- Masks ---- */

/*
 * Clears the bits of an address, in place, that are not in the mask.
 *
 * Returns 1; 0, with nothing changed: an argument is NULL, the families differ or have no
 * addresses. The mask may have any bits.
 */
RK_API int strip_host_part_from_network_address(struct sockaddr* address,
                                                const struct sockaddr* mask);

/*
 * Returns the length of a mask's prefix, 0 to 32 or 0 to 128; -1 if there is a one behind a zero,
 * for a family that has no addresses, and for NULL.
 */
RK_API int netmask2cidr(const struct sockaddr* mask);

/*
 * Makes the mask of `prefix` leading ones, of the family AF_INET or AF_INET6, in `out`. Family and
 * mask are set, all else in the record stays as it is.
 *
 * Returns 0; -1, with `out` untouched: it is NULL, the prefix is negative, above 32 (AF_INET) or
 * 128 (AF_INET6), or the family another one.
 */
RK_API int cidr2netmask(int prefix, struct sockaddr* out, int family);

/*
 * Tells whether an IPv6 record holds a link-local address, fe80::/10 (RFC 4291). The family is not
 * looked at: do not ask for an IPv4 address, whose record may end before the bytes that are read,
 * the 9th and the 10th.
 *
 * Returns 1 if so; 0 if not, and for NULL. ff80::/10, which are multicast addresses, count too:
 * programs rely on the mask as it is.
 */
RK_API int is_link_local_address(const struct sockaddr* record);

/* ---- Dotted quads and numbers in host order ---- */

/*
 * Reads four numbers with dots between them, as sscanf(3) does with "%lu.%lu.%lu.%lu", and adds
 * them up: (a << 24) + (b << 16) + (c << 8) + d. "192.0.2.1" gives 0xC0000201.
 *
 * This is a lenient reader, kept so: a number above 255 adds to the one before it, white space and
 * a sign may come before each, and whatever follows the fourth is ignored. All wraps in 32 bits, on
 * every host; a number that 64 bits cannot hold counts as 4294967295. For input that is not
 * trusted use str2addr4().
 *
 * Returns 0; -1, with `*out` untouched, if there are not four numbers or an argument is NULL.
 */
RK_API int convIPStr2IPUl(const char* text, uint32_t* out);

/*
 * Writes the four bytes of `value`, the most significant one first, as "192.0.2.1" to `dst` of
 * IPV4_TEXT_SIZE bytes. Nothing is written to NULL.
 *
 * Returns 0.
 */
RK_API int convIPUL2IPStr(uint32_t value, char* dst);

#ifdef __cplusplus
}
#endif

#endif
