// IpAddress: its texts beside inet_pton() and inet_ntop(), its types beside the bits written out.

#include <rkutils/ip_address.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include <arpa/inet.h>

#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using fuzz::Text;

std::optional<std::uint32_t> quad_of(const std::string& text) {
  in_addr address = {};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

std::string text_of(std::uint32_t quad) {
  in_addr address = {};
  address.s_addr = htonl(quad);
  std::array<char, INET_ADDRSTRLEN> text;
  inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data();
}

// "0" to "32" as they are printed.
std::optional<unsigned> size_of(const std::string& text) {
  for (unsigned size = 0; size <= 32; ++size) {
    if (text == std::to_string(size)) return size;
  }
  return std::nullopt;
}

// The ones of a mask; nothing for what is none.
std::optional<unsigned> ones_of(std::uint32_t mask) {
  unsigned ones = 0;
  while (ones < 32 && (mask >> (31 - ones) & 1U) != 0) ++ones;
  for (unsigned bit = ones; bit < 32; ++bit) {
    if ((mask >> (31 - bit) & 1U) != 0) return std::nullopt;
  }
  return ones;
}

std::uint32_t mask_of(unsigned ones) {
  std::uint32_t mask = 0;
  for (unsigned bit = 0; bit < ones; ++bit) mask |= std::uint32_t{1} << (31 - bit);
  return mask;
}

// An IpAddress as it is described.
struct Model {
  bool has_address = false;
  std::uint32_t address = 0;
  std::uint32_t mask = 0xFFFFFFFF;

  int set_address(const std::string& text) {
    const std::size_t slash = text.find('/');
    const auto quad = quad_of(text.substr(0, slash));
    if (!quad) return -1;
    if (slash != std::string::npos) {
      const auto size = size_of(text.substr(slash + 1));
      if (!size) return -1;
      mask = mask_of(*size);
    }
    has_address = true;
    address = *quad;
    return 0;
  }

  int set_mask(const std::string& text) {
    const auto quad = quad_of(text);
    return quad ? set_mask(*quad) : -1;
  }

  int set_mask(std::uint32_t value) {
    if (!ones_of(value)) return -1;
    has_address = true;
    mask = value;
    return 0;
  }
};

void check_types(const IpAddress& actual, const Model& model) {
  const std::uint32_t first = model.address >> 24U;
  const bool there = model.has_address;
  expect_equal(actual.isV4ClassA(), there && first <= 127, "class A");
  expect_equal(actual.isV4ClassB(), there && first >= 128 && first <= 191, "class B");
  expect_equal(actual.isV4ClassC(), there && first >= 192 && first <= 223, "class C");
  expect_equal(actual.isV4ClassD(), there && first >= 224 && first <= 239, "class D");
  expect_equal(actual.isV4ClassE(), there && first >= 240, "class E");
  expect_equal(actual.isV4ClassABC(), there && first < 224, "class A, B or C");
  expect_equal(actual.isLoopback(), there && first == 127, "loopback");
  expect_equal(actual.isLocalGroup(), there && model.address >> 8U == 0xE00000, "local group");

  const unsigned ones = ones_of(model.mask).value_or(0);
  const bool unicast = first >= 1 && first <= 223;
  const std::uint32_t network = model.address & model.mask;
  const std::uint32_t host = model.address & ~model.mask;
  const bool in_network =
      there && unicast && ones >= 2 && ones <= 30 && network != 0 && network != model.mask;
  const bool is_default = there && model.address == 0 && model.mask == 0;
  const bool is_host = there && unicast && ones == 32;
  const bool is_net = (in_network && host == 0) || is_default;
  const bool is_broadcast = in_network && host == ~model.mask;
  const bool is_interface = in_network && host != 0 && host != ~model.mask;
  const bool is_limited = there && model.address == 0xFFFFFFFF;
  expect_equal(actual.isHostType(), is_host, "host");
  expect_equal(actual.isNetType(), is_net, "net");
  expect_equal(actual.isIfaceType(), is_interface, "interface");
  expect_equal(actual.isDirBcType(), is_broadcast, "directed broadcast");
  expect_equal(actual.isLimBcType(), is_limited, "limited broadcast");
  expect_equal(actual.isDefGwType(), is_default, "default gateway");
  expect_equal(actual.isValidAddress(),
               is_host || is_net || is_interface || is_broadcast || is_limited, "valid");
}

void check(const IpAddress& actual, const Model& model) {
  String text;
  const auto shown = [&](std::uint32_t quad) {
    return model.has_address ? text_of(quad) : std::string();
  };
  expect_equal(std::string(actual.getIpAddrAsString(text).c_str()), shown(model.address),
               "the address");
  expect_equal(std::string(actual.getNetMaskAsString(text).c_str()), shown(model.mask), "the mask");
  expect_equal(std::string(actual.getNetAddressAsString(text).c_str()),
               shown(model.address & model.mask), "the network");
  expect_equal(actual.getV4IpAddrAsBinaryUInt32(), model.address, "the address's number");
  expect_equal(actual.getV4NetMaskAsBinaryUInt32(), model.mask, "the mask's number");
  expect_equal(actual.getV4NetAddrAsBinaryUInt32(), model.address & model.mask,
               "the network's number");
  const unsigned ones = ones_of(model.mask).value_or(0);
  expect_equal(actual.getNetMaskSize(), model.has_address ? ones : 0, "the mask's size");
  unsigned long size = 99;
  expect_equal(actual.isMaskValid(size), model.has_address, "whether the mask is one");
  expect_equal(size, model.has_address ? ones : 0, "the size of the mask that is one");
  expect_equal(actual.isEmpty(), !model.has_address, "whether it is empty");
  check_types(actual, model);
  if (!model.has_address) return;

  // What it writes it reads.
  const std::string whole = text_of(model.address) + "/" + std::to_string(ones);
  expect(IpAddress(String(whole.c_str())) == actual, "its text makes the same");
  expect(IpAddress(String(text_of(model.address).c_str()), String(text_of(model.mask).c_str())) ==
             actual,
         "its two texts make the same");
  expect(IpAddress(model.address, model.mask) == actual, "its numbers make the same");
}

// A number of so many digits at most, up to `largest`, at a position: what the library calls a token.
bool take_number(const std::string& text, long& position, std::size_t digits, unsigned long largest,
                 unsigned long& number) {
  number = 0;
  if (position < 0 || position >= static_cast<long>(text.size())) return false;
  const auto begin = static_cast<std::size_t>(position);
  std::size_t count = 0;
  while (count < digits && begin + count < text.size() && text[begin + count] >= '0' &&
         text[begin + count] <= '9') {
    ++count;
    if (text[begin] == '0') break;
  }
  if (count == 0) return false;
  number = std::stoul(text.substr(begin, count));
  position += static_cast<long>(count);
  return number <= largest;
}

using TakesNumber = bool (*)(String const&, long&, unsigned long&);

void check_token(TakesNumber take, const Text& text, long position, std::size_t digits,
                 unsigned long largest) {
  long expected_position = position;
  unsigned long expected = 0;
  const bool taken =
      take_number(std::string(text.view()), expected_position, digits, largest, expected);
  unsigned long number = 77;
  expect_equal(take(String(text.c_str()), position, number), taken, "whether there is a number");
  expect_equal(position, expected_position, "the position behind the number");
  expect_equal(number, expected, "the number");
}

void check_character(const Text& text, long position, char character) {
  const bool inside = position >= 0 && position < static_cast<long>(text.length());
  const bool taken = inside && text.view()[static_cast<std::size_t>(position)] == character;
  const String string(text.c_str());
  expect_equal(IpAddress::s_getEndOfString(string, position),
               position >= static_cast<long>(text.length()), "the end");
  long moved = position;
  expect_equal(IpAddress::s_getCharOfString(string, moved, character), taken, "the character");
  expect_equal(moved, taken ? position + 1 : position, "the position behind the character");
}

}  // namespace

// Four numbers and a byte; then an address, in the next line a mask, in the next one another address.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const auto position = input.number<std::int8_t>();
  const auto character = static_cast<char>(input.byte());
  const auto number = input.number<std::uint32_t>();
  const unsigned ones = input.byte() % 40U;
  const Text address_text(input.until('\n'));
  const Text mask_text(input.until('\n'));
  const Text other_text(input.rest());

  IpAddress address;
  Model model;
  check(address, model);
  expect_equal(address.setIpAddrAsString(String(address_text.c_str())),
               model.set_address(address_text.c_str()), "setting the address");
  check(address, model);
  expect_equal(address.setNetMaskAsString(String(mask_text.c_str())),
               model.set_mask(std::string(mask_text.c_str())), "setting the mask");
  check(address, model);
  expect_equal(address.setV4NetMaskAsBinaryUInt32(number), model.set_mask(number),
               "setting the mask's number");
  check(address, model);
  const bool has_size = model.has_address && ones <= 32;
  expect_equal(address.setNetMaskSize(ones), has_size ? 0 : -1, "setting the mask's size");
  if (has_size) model.mask = mask_of(ones);
  check(address, model);

  IpAddress other;
  Model other_model;
  other.setIpAddrAsString(String(other_text.c_str()));
  other_model.set_address(other_text.c_str());
  check(other, other_model);
  expect_equal(
      address.contains(other),
      model.has_address && (other_model.address & model.mask) == (model.address & model.mask),
      "whether it contains the other");
  expect_equal(address == other,
               model.has_address == other_model.has_address &&
                   model.address == other_model.address && model.mask == other_model.mask,
               "whether they are equal");

  check_token(IpAddress::s_getV4IpAddrTokenOfString, address_text, position, 3, 255);
  check_token(IpAddress::s_getV4NetMaskSizeOfString, address_text, position, 2, 32);
  check_character(address_text, position, character);
  return 0;
}
