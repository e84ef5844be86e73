#include <rkutils/ip_address.h>
#include <rkutils/network/dotted_quad.h>
#include <rkutils/network/netmask.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

const unsigned long IpAddress::ipv4McGrpAllRouters;
const unsigned long IpAddress::ipv4McGrpAllHosts;
const unsigned long IpAddress::ipv4McGrpUnspecified;
const unsigned long IpAddress::ipv4Loopback;

namespace {

using rkutils::network::is_mask;
using rkutils::network::kMaskBits;
using rkutils::network::kMaskSize;
using rkutils::network::kOctet;
using rkutils::network::leading_ones;
using rkutils::network::mask_of;
using rkutils::network::NumberForm;
using rkutils::network::TextReader;

enum Kind : std::uint32_t { kEmpty = 0, kIpv4 = 1 };

constexpr std::uint32_t kFirstNetwork = 0x01000000;  // 1.0.0.0
constexpr std::uint32_t kFirstClassB = 0x80000000;
constexpr std::uint32_t kFirstClassC = 0xC0000000;
constexpr std::uint32_t kFirstClassD = 0xE0000000;
constexpr std::uint32_t kFirstClassE = 0xF0000000;
constexpr std::uint32_t kLimitedBroadcast = 0xFFFFFFFF;
constexpr std::uint32_t kSingleHost = 0xFFFFFFFF;  // as a mask

std::uint32_t cut(unsigned long value) { return static_cast<std::uint32_t>(value); }

TextReader read(String const& text, long position = 0) {
  return {text.c_str(), text.length(), position};
}

bool take_number(NumberForm form, String const& text, long& position, unsigned long& value) {
  TextReader reader = read(text, position);
  std::uint32_t number = 0;
  const bool taken = reader.take_number(form, number);
  position = reader.position();
  value = number;
  return taken;
}

String& write(std::uint32_t kind, std::uint32_t address, String& text) {
  if (kind != kIpv4) return text = String::EMPTY();
  char quad[rkutils::network::kDottedQuadSize];
  rkutils::network::write_dotted_quad(address, quad);
  return text = quad;
}

// An address that one host or network can have.
bool is_unicast(std::uint32_t address) {
  return address >= kFirstNetwork && address < kFirstClassD;
}

// What an address is in a network with room for hosts.
enum class Role { kNone, kNetwork, kHost, kBroadcast };

Role role_of(std::uint32_t address, std::uint32_t mask) {
  constexpr unsigned kFewestOnes = 2;
  constexpr unsigned kMostOnes = 30;
  const unsigned ones = leading_ones(mask);
  if (!is_unicast(address) || !is_mask(mask) || ones < kFewestOnes || ones > kMostOnes) {
    return Role::kNone;
  }
  const std::uint32_t network = address & mask;
  if (network == 0 || network == mask) return Role::kNone;
  const std::uint32_t host = address & ~mask;
  if (host == 0) return Role::kNetwork;
  return host == ~mask ? Role::kBroadcast : Role::kHost;
}

}  // namespace

// ---- Making ----

IpAddress::IpAddress() { init(); }

IpAddress::IpAddress(String const& address) : IpAddress() { setIpAddrAsString(address); }

IpAddress::IpAddress(String const& address, String const& netmask) : IpAddress() {
  if (setIpAddrAsString(address) != 0 || setNetMaskAsString(netmask) != 0) init();
}

IpAddress::IpAddress(unsigned long address, unsigned long netmask) : IpAddress() {
  if (setV4NetMaskAsBinaryUInt32(netmask) == 0) setV4IpAddrAsBinaryUInt32(address);
}

void IpAddress::init() {
  kind_ = kEmpty;
  std::fill(std::begin(address_), std::end(address_), 0);
  std::fill(std::begin(netmask_), std::end(netmask_), ~std::uint32_t{0});
}

IpAddress const& IpAddress::EMPTY() {
  static const IpAddress empty;
  return empty;
}

// ---- Reading ----

String& IpAddress::getIpAddrAsString(String& text) const { return write(kind_, address_[0], text); }

String& IpAddress::getNetMaskAsString(String& text) const {
  return write(kind_, netmask_[0], text);
}

String& IpAddress::getNetAddressAsString(String& text) const {
  return write(kind_, address_[0] & netmask_[0], text);
}

unsigned long IpAddress::getV4IpAddrAsBinaryUInt32() const { return address_[0]; }

unsigned long& IpAddress::getV4IpAddrAsBinaryUInt32(unsigned long& value) const {
  return value = getV4IpAddrAsBinaryUInt32();
}

unsigned long IpAddress::getV4NetAddrAsBinaryUInt32() const { return address_[0] & netmask_[0]; }

unsigned long& IpAddress::getV4NetAddrAsBinaryUInt32(unsigned long& value) const {
  return value = getV4NetAddrAsBinaryUInt32();
}

unsigned long IpAddress::getV4NetMaskAsBinaryUInt32() const { return netmask_[0]; }

unsigned long& IpAddress::getV4NetMaskAsBinaryUInt32(unsigned long& value) const {
  return value = getV4NetMaskAsBinaryUInt32();
}

unsigned long IpAddress::getNetMaskSize() const {
  return kind_ == kIpv4 ? leading_ones(netmask_[0]) : 0;
}

bool IpAddress::isEmpty() const { return *this == EMPTY(); }

// ---- Changing ----

int IpAddress::setIpAddrAsString(String const& text) {
  TextReader reader = read(text);
  std::uint32_t address = 0;
  std::uint32_t size = 0;
  if (!reader.take_dotted_quad(address)) return -1;
  const bool has_size = reader.take('/');
  if (has_size && !reader.take_number(kMaskSize, size)) return -1;
  if (!reader.at_end()) return -1;
  setV4IpAddrAsBinaryUInt32(address);
  if (has_size) setNetMaskSize(size);
  return 0;
}

int IpAddress::setNetMaskAsString(String const& text) {
  TextReader reader = read(text);
  std::uint32_t netmask = 0;
  if (!reader.take_dotted_quad(netmask) || !reader.at_end()) return -1;
  return setV4NetMaskAsBinaryUInt32(netmask);
}

int IpAddress::setV4IpAddrAsBinaryUInt32(unsigned long address) {
  kind_ = kIpv4;
  address_[0] = cut(address);
  return 0;
}

int IpAddress::setV4NetMaskAsBinaryUInt32(unsigned long netmask) {
  if (!is_mask(cut(netmask))) return -1;
  kind_ = kIpv4;
  netmask_[0] = cut(netmask);
  return 0;
}

int IpAddress::setNetMaskSize(unsigned long size) {
  if (kind_ != kIpv4 || cut(size) > kMaskBits) return -1;
  netmask_[0] = mask_of(cut(size));
  return 0;
}

// ---- Comparing ----

bool IpAddress::operator==(IpAddress const& other) const {
  return kind_ == other.kind_ &&
         std::equal(std::begin(address_), std::end(address_), std::begin(other.address_)) &&
         std::equal(std::begin(netmask_), std::end(netmask_), std::begin(other.netmask_));
}

bool IpAddress::operator!=(IpAddress const& other) const { return !(*this == other); }

bool IpAddress::contains(IpAddress const& other) const {
  return kind_ == kIpv4 && ((other.address_[0] ^ address_[0]) & netmask_[0]) == 0;
}

// ---- Classes ----

bool IpAddress::isV4ClassA() const { return kind_ == kIpv4 && address_[0] < kFirstClassB; }

bool IpAddress::isV4ClassB() const {
  return kind_ == kIpv4 && address_[0] >= kFirstClassB && address_[0] < kFirstClassC;
}

bool IpAddress::isV4ClassC() const {
  return kind_ == kIpv4 && address_[0] >= kFirstClassC && address_[0] < kFirstClassD;
}

bool IpAddress::isV4ClassD() const {
  return kind_ == kIpv4 && address_[0] >= kFirstClassD && address_[0] < kFirstClassE;
}

bool IpAddress::isV4ClassE() const { return kind_ == kIpv4 && address_[0] >= kFirstClassE; }

bool IpAddress::isV4ClassABC() const { return kind_ == kIpv4 && address_[0] < kFirstClassD; }

bool IpAddress::isLoopback() const {
  return kind_ == kIpv4 && (address_[0] & mask_of(8)) == (cut(ipv4Loopback) & mask_of(8));
}

bool IpAddress::isLocalGroup() const {
  return kind_ == kIpv4 && (address_[0] & mask_of(24)) == cut(ipv4McGrpUnspecified);
}

// ---- Types ----

bool IpAddress::isHostType() const {
  return kind_ == kIpv4 && is_unicast(address_[0]) && netmask_[0] == kSingleHost;
}

bool IpAddress::isNetType() const {
  return (kind_ == kIpv4 && role_of(address_[0], netmask_[0]) == Role::kNetwork) || isDefGwType();
}

bool IpAddress::isIfaceType() const {
  return kind_ == kIpv4 && role_of(address_[0], netmask_[0]) == Role::kHost;
}

bool IpAddress::isDirBcType() const {
  return kind_ == kIpv4 && role_of(address_[0], netmask_[0]) == Role::kBroadcast;
}

bool IpAddress::isLimBcType() const { return kind_ == kIpv4 && address_[0] == kLimitedBroadcast; }

bool IpAddress::isDefGwType() const {
  return kind_ == kIpv4 && address_[0] == 0 && netmask_[0] == 0;
}

bool IpAddress::isValidAddress() const {
  return isHostType() || isNetType() || isIfaceType() || isLimBcType() || isDirBcType();
}

bool IpAddress::isMaskValid(unsigned long& size) const {
  size = 0;
  return kind_ == kIpv4 && s_isV4MaskValid(netmask_[0], size);
}

// ---- Parts of texts ----

bool IpAddress::s_getV4IpAddrTokenOfString(String const& text, long& pos, unsigned long& value) {
  return take_number(kOctet, text, pos, value);
}

bool IpAddress::s_getV4NetMaskSizeOfString(String const& text, long& pos, unsigned long& value) {
  return take_number(kMaskSize, text, pos, value);
}

bool IpAddress::s_getCharOfString(String const& text, long& pos, char character) {
  TextReader reader = read(text, pos);
  const bool taken = reader.take(character);
  pos = reader.position();
  return taken;
}

bool IpAddress::s_getEndOfString(String const& text, long pos) { return read(text, pos).at_end(); }

bool IpAddress::s_isV4MaskValid(unsigned long mask, unsigned long& size) {
  const bool valid = is_mask(cut(mask));
  size = valid ? leading_ones(cut(mask)) : 0;
  return valid;
}

// ---- IPv6 ----

unsigned char* IpAddress::getV6IpAddrAsBinaryString(unsigned char* buffer) const { return buffer; }

unsigned char* IpAddress::getV6NetAddrAsBinaryString(unsigned char* buffer) const { return buffer; }

unsigned char* IpAddress::getV6NetMaskAsBinaryString(unsigned char* buffer) const { return buffer; }

int IpAddress::setV6IpAddrAsBinaryString(unsigned char const* /*address*/) { return -1; }

int IpAddress::setV6NetMaskAsBinaryString(unsigned char const* /*netmask*/) { return -1; }

bool IpAddress::s_isV6MaskValid(char const* /*mask*/, unsigned long const& /*size*/) {
  return false;
}
