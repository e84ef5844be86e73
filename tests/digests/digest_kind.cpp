#include "digests/digest_kind.h"

#include <cstring>

namespace digest_test {
namespace {

std::size_t offset_of_count(const Kind& kind) {
  return sizeof(void*) + kind.initial_state.size() * sizeof(std::uint32_t);
}

}  // namespace

Members members_at(const Kind& kind, const void* object) {
  Members members;
  members.state.resize(kind.initial_state.size());
  const auto* at = static_cast<const unsigned char*>(object) + sizeof(void*);
  const auto take = [&at](void* to, std::size_t size) {
    std::memcpy(to, at, size);
    at += size;
  };
  take(members.state.data(), members.state.size() * sizeof members.state[0]);
  take(members.count.data(), sizeof members.count);
  take(members.buffer.data(), sizeof members.buffer);
  take(&members.returned_length, sizeof members.returned_length);
  return members;
}

void set_count(const Kind& kind, HashContext& context, std::uint64_t bits) {
  const std::uint32_t count[2] = {static_cast<std::uint32_t>(bits),
                                  static_cast<std::uint32_t>(bits >> 32)};
  auto* const object = static_cast<unsigned char*>(static_cast<void*>(&context));
  std::memcpy(object + offset_of_count(kind), count, sizeof count);
}

}  // namespace digest_test
