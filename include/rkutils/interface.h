/*
 * Network interfaces: their state, addresses and masks; their names as users know them; the links
 * to the outside; the members of bridges; modem cards and providers.
 *
 *     IpInterfaceStatus interfaces;
 *     interfaces.setIpV4Address("eth0", 0xC0000201);                       (192.0.2.1)
 *     interfaces.setIpV4Mask("eth0", 0xFFFFFF00);
 *     if (interfaces.setInterfaceUp("eth0", 1) != 1) return -1;
 *     printf("%s is up, and %d links to the outside\n", interfaceize("eth0"), wanlink_count());
 *
 * The class is for C++; all else is for C as well.
 *
 * Failures are results and nothing else: nothing is logged or printed, nothing throws, and errno
 * means nothing. Whoever may not change an interface (that takes CAP_NET_ADMIN) gets the failure's
 * result and has changed nothing; asking needs no privileges.
 *
 * Other programs' files and commands:
 *     "/tmp/status/link-manager"            the link manager's status tree, read
 *     "/tmp/status/wlan/status-wlan%d"      what a radio does, read by interfaceize()
 *     "/proc/sysinfo/wlan1/type"            whether there is a second radio, likewise
 *     "/usr/sbin/brctl show 2> /dev/null"   run by bridge_members()
 *     "/usr/bin/pdb -n %s"                  run by pdb_find_provider()
 * A command is run as by popen(3), with the caller's environment, folder, user, and those of its
 * descriptors that are not close-on-exec. How it ends is not looked at: one that fails, or is not
 * installed, counts as one that has printed nothing more. So an ignored SIGCHLD does not matter.
 * Signal handlers that run meanwhile lose nothing of the output. What pdb complains of, or the
 * shell that misses it, goes to the caller's standard error.
 *
 * Blocking: bridge_members() and pdb_find_provider() wait for their commands, without a limit. The
 * kernel answers at once. Files are read as readfile() reads them.
 *
 * Threads and signals. interfaceize() and pdb_find_provider() return buffers of the library's, and
 * wanlink_count() and interfaceize() read with readfile(), pdb_find_provider() writes its command
 * with strformat(): the results of these functions are overwritten too, and in a program with
 * several threads only one at a time may call any of them. The others keep no state. A thread that
 * is cancelled (pthread_cancel(3)) finishes its call first. Nothing here is for signal handlers.
 * Descriptors are close-on-exec.
 */
#ifndef RKUTILS_INTERFACE_H
#define RKUTILS_INTERFACE_H

#include <rkutils/export.h>

#include <stddef.h>

#ifdef __cplusplus
/*
 * Interfaces, asked about and changed through the kernel (netdevice(7)). Objects hold nothing: one
 * is as good as another, and may be used by several threads at once.
 *
 * Names. The kernel's have at most 15 characters, AND OF A LONGER ONE THE FIRST 15 COUNT: a name
 * that is too long can mean an interface that is there. A name with a colon and a label
 * ("eth0:backup") means an address of its own on that interface. A NULL gives 0, as a name of no
 * interface does.
 *
 * Addresses and masks are in host order, the first octet in the most significant byte, as in
 * IpAddress. Of several addresses that an interface may have, these are about the first one.
 *
 * All give 0 as well when there is no socket, or no descriptor for one or for a file.
 */
class RK_API IpInterfaceStatus {
 public:
  virtual ~IpInterfaceStatus();

  /*
   * Whether the text is found in the name of an interface: 1 or 0. NOT ONLY AS ALL OF IT: with
   * "eth0" there, "eth", "th0" and the empty text are found too. All characters of the text count,
   * however many, and labels of addresses count like names. 0 also when the interfaces cannot be
   * listed.
   */
  int isInterfaceAvailable(char const* name) const;

  /* 1 if the interface is switched on and has a carrier (IFF_UP and IFF_RUNNING); else 0. */
  int isInterfaceUp(char const* name) const;

  /*
   * Switches the interface on if `up` is 1, and off if it is anything else: IFF_UP and IFF_RUNNING
   * are set or cleared, and the other flags stay. IFF_RUNNING is the kernel's to decide: an
   * interface without a carrier does not get it. Of a name with a label, off takes the label's
   * address away, and the interface stays on.
   *
   * Returns 1; 0 when the kernel refuses.
   */
  int setInterfaceUp(char const* name, int up) const;

  /*
   * Sets how many packets the interface queues for sending.
   *
   * Returns 1; 0 when the kernel refuses, as it does numbers from 0x80000000.
   */
  int setTxQueueLen(char const* name, unsigned int packets) const;

  /* The address; 0 without one, and without such an interface. */
  unsigned int getIpV4Address(char const* name) const;

  /*
   * Sets the address. The kernel sets the mask with it, that of the address's class, and the
   * broadcast: set the mask afterwards. The address 0 takes the address away.
   *
   * Returns 1; 0 when the kernel refuses, as it does addresses of groups.
   */
  int setIpV4Address(char const* name, unsigned int address) const;

  /* The mask; 0 without an address, and without such an interface. */
  unsigned int getIpV4Mask(char const* name) const;

  /*
   * Sets the mask: leading ones, then zeros.
   *
   * Returns 1; 0 when the kernel refuses: no address to set it for, or another number.
   */
  int setIpV4Mask(char const* name, unsigned int mask) const;

  /*
   * Whether the link manager says that the outside can be reached: 1 if
   * "/tmp/status/link-manager/hotlink/interface" can be opened for reading, else 0.
   */
  int haveNetworkConnectivity() const;
};
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Names ---- */

/*
 * Translates the kernel's name of an interface into the one that users see: letters in upper case,
 * and numbers that begin with 1.
 *
 *     eth0   ETH1       eth0-1  ETH1-2      ppp0   PPP1       gretun0  GRE1       lan   LAN
 *     wlan0  WLAN1      ppp10   SERIAL1, and so on to ppp19
 *
 * A name is taken apart first: the first number is made of its digits before any dash, the second
 * one of all digits behind the first dash, and the prefix of the other characters that come before
 * the first number, or of all others where there is none; dashes are left out. Six digits of each
 * number and 14 characters of the prefix count; what follows them is left out. Then, the first that
 * fits:
 *
 *     no first number                  the prefix
 *     prefix "ppp", 10 to 19           "SERIAL" and the number less 9
 *     prefix "ppp", a name that has
 *       20 to 29 characters in all     "PPPOE" and the number less 19, which may be negative
 *     prefix "ppp"                     "PPP" and the number plus 1, for PPPoE too: the kernel's
 *                                      names are not so long. Kept for compatibility
 *     prefix "gretun"                  "GRE" and the number plus 1
 *     no second number                 the prefix and the number plus 1
 *     a prefix that begins "wlan",
 *       on a device with two radios    the prefix, the number plus 1, "-" and the second number
 *       on another one                 the prefix and the second number plus 1
 *     any other prefix                 the prefix, the number plus 1, "-", the second number plus 1
 *
 * There are two radios if "/proc/sysinfo/wlan1/type" has a text. Of a radio whose status, in
 * "/tmp/status/wlan/status-wlan" followed by the first number, begins "dualmode" or "mesh-ap", the
 * second number is shown as one more. Prefixes are compared as they are written: "PPP10" is PPP11.
 *
 * Returns the name, of at most 14 characters, where a longer one is cut; the empty text for NULL
 * and for the empty text. The buffer is the library's: the next call overwrites it. A result may be
 * the argument.
 */
RK_API char* interfaceize(const char* name);

/* ---- Links to the outside ---- */

/*
 * Whether a link is up: 1 if "/tmp/status/link-manager/hotlink" is there and readable, as access(2)
 * tells: for the real user; else 0.
 */
RK_API int wanlink_is_up(void);

/*
 * Counts the links in use: the entries of "/tmp/status/link-manager" whose names begin "wanlink"
 * and whose file "state" has a text that does not begin "disabled". White space before the text
 * does not count.
 *
 * Returns the number; 0 when the folder cannot be opened. Overwrites readfile()'s result.
 */
RK_API int wanlink_count(void);

/* ---- Bridges ---- */

/*
 * Lists the interfaces of a bridge as "eth0 eth1 ", each with a blank behind it, in `out` of `size`
 * bytes; of a longer list the first size - 1 characters, which may end within a name. `bridge` must
 * not lie in `out`, which is emptied first.
 *
 * The list is read from the table that brctl prints. Once a line has the bridge's name, all lines
 * after it that begin with a tab or a blank count. THE FURTHER INTERFACES OF BRIDGES THAT COME
 * LATER IN THE TABLE ARE AMONG THEM, though never their first ones; kept for compatibility. A line
 * is read up to its 1023rd character, and up to a NUL.
 *
 * Returns the number of characters written, 0 with an empty text for a bridge that has no
 * interfaces or is not there. Or -1: `bridge` NULL or empty, `out` NULL, a size of 0, and then
 * `out` is untouched; or the command could not be started, for want of descriptors, processes or
 * memory, and `out` is empty.
 */
RK_API int bridge_members(const char* bridge, char* out, size_t size);

/* ---- Modems and providers ---- */

/*
 * Tells the family of a cellular card by what its name begins with, the first of these that fits:
 *
 *     "gtm"           0x10001         "mpn", "mpl"                  0x200008
 *     "mc"            0x20002         "trm"                         0x400010
 *     "em"            0x40004         "sim"                         0x800020
 *     "me", "mu"      0x80004         "tobyl2"                      0x1000040
 *     "mc509"         0x100004        "laral6"                      0x4000040
 *                                     "fn", "le", "lm", "ln"        0x2000080
 *
 * The upper 16 bits have one for each family, the lower 16 one for each group of vendors. Nothing
 * gets the code of "mc509", since "mc" comes before it; kept for compatibility.
 *
 * Returns the code; 0 for any other name, and for NULL.
 */
RK_API int card2family(const char* card);

/*
 * Asks the provider database for the name of the provider with this number, such as "26201".
 *
 * `key` becomes the tool's arguments, by way of a shell: spaces separate them, and one that begins
 * with a dash is an option. A key is refused that could mean more to a shell: one with any of
 *     | & ; < > ( ) $ ` \ " ' * ? [ ] # ~ = % ! { }
 * or with other white space than spaces. So is one of more than 2031 characters.
 *
 * The answer is in the first line of the tool's output that begins "provider:": what follows that,
 * without white space around it, and of it the first 63 characters. A line is read up to its 1024th
 * character, and up to a NUL. What follows the answer is not read.
 *
 * Returns the name, "" when there is none. The buffer, of 64 bytes, is the library's: the next call
 * overwrites it. Or NULL: `key` NULL, empty or refused, and nothing has been run; or the command
 * could not be started, for want of descriptors, processes or memory. Then the last result stays.
 * Overwrites strformat()'s result; `key` may be one, or the last result of this function.
 */
RK_API char* pdb_find_provider(const char* key);

#ifdef __cplusplus
}
#endif

#endif
