/*
 * IpAddress: an IPv4 address with its netmask, as configurations have them.
 *
 *     IpAddress lan("192.168.1.1/24");
 *     String network, mask;
 *     if (!lan.isIfaceType()) return -1;        (a host's address in a network, not the network's)
 *     if (lan.contains(IpAddress(gateway))) syslog(LOG_INFO, "%s is in %s/%s", gateway,
 *         lan.getNetAddressAsString(network).c_str(), lan.getNetMaskAsString(mask).c_str());
 *
 * An IpAddress is empty or an IPv4 address; either way it has a mask, 255.255.255.255 to begin
 * with. It is a plain value of 36 bytes: copying copies all, and there is nothing to destroy.
 *
 * Numbers are in host order, the first octet in the most significant byte. They have 32 bits: where
 * unsigned long has more, what comes in is cut to 32 bits first, masks and sizes of masks too.
 *
 * IPv6 is not implemented. Its members are there for the programs that call them, and do what is
 * said with them.
 *
 * Failures. Setters return 0, or -1 with the object as it was. Nothing is logged, nothing throws,
 * and nothing blocks. The process is aborted when there is no memory for a String, as everywhere.
 *
 * Threads and signals: nothing is locked. An object is for one thread at a time; members that are
 * const write nothing to it, so that several threads may share one that does not change. That holds
 * for EMPTY() as well. Not for signal handlers.
 */
#ifndef RKUTILS_IP_ADDRESS_H
#define RKUTILS_IP_ADDRESS_H

#include <rkutils/export.h>
#include <rkutils/string.h>

#include <cstdint>

class RK_API IpAddress {
 public:
  static const unsigned long ipv4McGrpAllRouters = 0xE0000002UL;  /* 224.0.0.2 */
  static const unsigned long ipv4McGrpAllHosts = 0xE0000001UL;    /* 224.0.0.1 */
  static const unsigned long ipv4McGrpUnspecified = 0xE0000000UL; /* 224.0.0.0 */
  static const unsigned long ipv4Loopback = 0x7F000001UL;         /* 127.0.0.1 */

  /* ---- Making ---- */

  /* Empty, with the mask 255.255.255.255. */
  IpAddress();

  /* As setIpAddrAsString() makes it of the text; empty when that refuses it. */
  IpAddress(String const& address);

  /*
   * As setIpAddrAsString() makes it of `address` and then setNetMaskAsString() of `netmask`. Empty,
   * with the first mask, when either refuses.
   */
  IpAddress(String const& address, String const& netmask);

  /* The address with the mask; empty, with the first mask, when the mask is none. */
  IpAddress(unsigned long address, unsigned long netmask);

  /* Makes it empty, with the mask 255.255.255.255. */
  void init();

  /* An empty one, the same each time. It may be called by several threads at once. */
  static IpAddress const& EMPTY();

  /* ---- Reading ----
   *
   * The first three replace `text` by a dotted quad, or by the empty text when this is empty, and
   * return `text`. The network's address is the address AND the mask.
   *
   * The numbers are those of the object, also when it is empty; the forms with an argument store
   * them there and return it.
   */

  String& getIpAddrAsString(String& text) const;
  String& getNetMaskAsString(String& text) const;
  String& getNetAddressAsString(String& text) const;

  unsigned long getV4IpAddrAsBinaryUInt32() const;
  unsigned long& getV4IpAddrAsBinaryUInt32(unsigned long& value) const;
  unsigned long getV4NetAddrAsBinaryUInt32() const;
  unsigned long& getV4NetAddrAsBinaryUInt32(unsigned long& value) const;
  unsigned long getV4NetMaskAsBinaryUInt32() const;
  unsigned long& getV4NetMaskAsBinaryUInt32(unsigned long& value) const;

  /* The number of the mask's leading ones, 0 to 32; 0 when this is empty. */
  unsigned long getNetMaskSize() const;

  /* Whether this is as IpAddress() makes it, the mask too. */
  bool isEmpty() const;

  /* ---- Changing ---- */

  /*
   * Takes "a.b.c.d", which leaves the mask as it is, or "a.b.c.d/n" with a mask of n leading ones,
   * 0 to 32. Numbers have no leading zeros, and nothing stands around or between. A mask in dots
   * after the slash is not taken.
   *
   * Returns 0; -1, with nothing changed, for any other text.
   */
  int setIpAddrAsString(String const& text);

  /*
   * Takes "a.b.c.d" as the mask: leading ones and then zeros. An empty object becomes an address by
   * it, 0.0.0.0 if it never had one.
   *
   * Returns 0; -1, with nothing changed, for any other text.
   */
  int setNetMaskAsString(String const& text);

  /* Sets the address, of an empty object too. Returns 0. */
  int setV4IpAddrAsBinaryUInt32(unsigned long address);

  /* As setNetMaskAsString(). Returns 0; -1, with nothing changed, when `netmask` is none. */
  int setV4NetMaskAsBinaryUInt32(unsigned long netmask);

  /* Sets the mask to `size` leading ones. Returns 0; -1 above 32, and when this is empty. */
  int setNetMaskSize(unsigned long size);

  /* ---- Comparing ---- */

  /* Whether both are empty or both are not, and addresses and masks are equal. */
  bool operator==(IpAddress const& other) const;
  bool operator!=(IpAddress const& other) const;

  /*
   * Whether the address of `other` is in the network of this one; false when this is empty. The
   * mask of `other` does not count. An empty `other` counts as 0.0.0.0.
   */
  bool contains(IpAddress const& other) const;

  /* ---- Classes of addresses (RFC 791, RFC 1112); all false when this is empty ---- */

  bool isV4ClassA() const;   /* 0.0.0.0 to 127.255.255.255 */
  bool isV4ClassB() const;   /* 128.0.0.0 to 191.255.255.255 */
  bool isV4ClassC() const;   /* 192.0.0.0 to 223.255.255.255 */
  bool isV4ClassD() const;   /* 224.0.0.0 to 239.255.255.255, groups */
  bool isV4ClassE() const;   /* 240.0.0.0 and above */
  bool isV4ClassABC() const; /* any of the first three: below 224.0.0.0 */
  bool isLoopback() const;   /* 127.0.0.0 to 127.255.255.255 */
  bool isLocalGroup() const; /* 224.0.0.0 to 224.0.0.255, not forwarded by routers */

  /* ---- What an address is with its mask; all false when this is empty ----
   *
   * The network part is what the mask leaves of the address, the host part the rest. Net, interface
   * and directed broadcast have this in common: the address is from 1.0.0.0 to 223.255.255.255, the
   * mask has 2 to 30 ones, and the network part is neither all zeros nor all ones.
   */

  bool isHostType() const;     /* from 1.0.0.0 to 223.255.255.255, with all 32 ones in the mask */
  bool isNetType() const;      /* as above with the host part all zeros; or isDefGwType() */
  bool isIfaceType() const;    /* as above with a host part neither all zeros nor all ones */
  bool isDirBcType() const;    /* as above with the host part all ones: a network's broadcast */
  bool isLimBcType() const;    /* 255.255.255.255, whatever the mask */
  bool isDefGwType() const;    /* 0.0.0.0 with the mask 0.0.0.0: the entry for all other networks */
  bool isValidAddress() const; /* host, net, interface, or either broadcast */

  /*
   * Whether this is not empty and its mask is one, as s_isV4MaskValid() tells with its `size`,
   * which is 0 for false. Setters let no other masks in.
   */
  bool isMaskValid(unsigned long& size) const;

  /* ---- Parts of texts ----
   *
   * Each looks at what begins at the position `pos` of `text`, and moves `pos` behind what it took.
   * Positions outside of the text have no character.
   */

  /*
   * Reads a number of up to three digits without leading zeros: at a "0" it ends. Returns true if
   * it is below 256. A larger one is false too, with `pos` moved behind its digits and `value` as
   * read; anything but a digit is false with `pos` as it was and 0 in `value`.
   */
  static bool s_getV4IpAddrTokenOfString(String const& text, long& pos, unsigned long& value);

  /* The same of up to two digits, true if the number is below 33. */
  static bool s_getV4NetMaskSizeOfString(String const& text, long& pos, unsigned long& value);

  /* Returns true, and moves on by one, if there is this character. */
  static bool s_getCharOfString(String const& text, long& pos, char character);

  /* Returns true if `pos` is at the end of the text or behind it. */
  static bool s_getEndOfString(String const& text, long pos);

  /*
   * Whether `mask` is leading ones and then zeros, none of either too. `size` becomes the number of
   * ones; 0 for false.
   */
  static bool s_isV4MaskValid(unsigned long mask, unsigned long& size);

  /* ---- IPv6, not implemented ---- */

  /* Leave the buffer untouched, which may be NULL, and return it. */
  unsigned char* getV6IpAddrAsBinaryString(unsigned char* buffer) const;
  unsigned char* getV6NetAddrAsBinaryString(unsigned char* buffer) const;
  unsigned char* getV6NetMaskAsBinaryString(unsigned char* buffer) const;
  /* Return -1 and change nothing. The argument is not read. */
  int setV6IpAddrAsBinaryString(unsigned char const* address);
  int setV6NetMaskAsBinaryString(unsigned char const* netmask);
  /* Returns false. The arguments are not read. */
  static bool s_isV6MaskValid(char const* mask, unsigned long const& size);

 private:
  std::uint32_t kind_;       /* 0: empty, 1: IPv4 */
  std::uint32_t address_[4]; /* of IPv4, the first word; room for IPv6 */
  std::uint32_t netmask_[4]; /* the same */
};

#endif
