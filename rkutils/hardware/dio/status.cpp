#include <rkutils/dio.h>
#include <rkutils/internal/assertion.h>

#include <cstddef>

namespace {

// The tests of the records, and where in them a number has its bit. The functions that find it are
// named as their assertions name them.
constexpr rkutils::internal::Assertions check{"rkutils/dio_status"};

static_assert(sizeof(DioStatus) == 16);
static_assert(offsetof(DioStatus, bits) == 4);
static_assert(offsetof(DioStatusAll, out) == sizeof(DioStatus));

struct IndexMask {
  std::size_t index;  // of a byte in `bits`, or behind it
  unsigned char mask;
};

IndexMask index_mask(uint32_t dio) {
  constexpr unsigned kBitsPerByte = 8;
  const uint32_t bit = dio - 1;
  return {bit / kBitsPerByte, static_cast<unsigned char>(1U << bit % kBitsPerByte)};
}

IndexMask dio_getIndexMaskIn(uint32_t dio) {
  check(dio <= DIORONUMBER_MAX, "dio <= DIORONUMBER_MAX");
  check(dio >= DIORONUMBER_MIN, "dio >= DIORONUMBER_MIN");
  return index_mask(dio);
}

IndexMask dio_getIndexMaskOut(uint32_t dio) {
  check(dio <= DIORWNUMBER_MAX, "dio <= DIORWNUMBER_MAX");
  check(dio >= DIORWNUMBER_MIN, "dio >= DIORWNUMBER_MIN");
  return index_mask(dio);
}

// Where a number's byte is, counted from the start of the record: bytes of 97 to 99 lie behind it.
std::size_t byte_offset(IndexMask place) { return offsetof(DioStatus, bits) + place.index; }

int get_bit(const DioStatus* status, IndexMask place) {
  const auto* const bytes = static_cast<const unsigned char*>(static_cast<const void*>(status));
  return (bytes[byte_offset(place)] & place.mask) != 0 ? 1 : 0;
}

void set_bit(DioStatus* status, IndexMask place, bool on) {
  unsigned char& byte = static_cast<unsigned char*>(static_cast<void*>(status))[byte_offset(place)];
  byte = static_cast<unsigned char>(on ? byte | place.mask : byte & ~place.mask);
}

// Calls `use` for each number from 1 on, until one fails. Returns that one's result.
template <typename Use>
unsigned for_each_number(uint32_t count, Use use) {
  for (uint32_t number = 1; number <= count; ++number) {
    const unsigned result = use(number);
    if (result != DIO_OK) return result;
  }
  return DIO_OK;
}

// Reads the values of all that `status` counts.
unsigned read_values(DioStatus* status, unsigned (*read)(uint32_t, unsigned char*),
                     void (*set)(DioStatus*, uint32_t, int)) {
  return for_each_number(status->count, [&](uint32_t number) {
    unsigned char value = 0;
    const unsigned result = read(number, &value);
    if (result == DIO_OK) set(status, number, value);
    return result;
  });
}

}  // namespace

unsigned dio_getStatusIn(DioStatus* status) {
  check(status != nullptr, "status != NULL");
  const unsigned result = dio_roCount(&status->count);
  if (result != DIO_OK) return result;
  check(status->count <= MAX_DIO_IN_COUNT, "status->count <= MAX_DIO_IN_COUNT");
  return read_values(status, dio_roValue, dio_setInValueInStatus);
}

unsigned dio_getStatusOut(DioStatus* status) {
  check(status != nullptr, "status != NULL");
  const unsigned result = dio_rwCount(&status->count);
  if (result != DIO_OK) return result;
  check(status->count <= MAX_DIO_OUT_COUNT, "status->count <= MAX_DIO_OUT_COUNT");
  return read_values(status, dio_rwValue, dio_setOutValueInStatus);
}

unsigned dio_getStatus(DioStatusAll* status) {
  check(status != nullptr, "status != NULL");
  const unsigned result = dio_getStatusIn(&status->in);
  return result == DIO_OK ? dio_getStatusOut(&status->out) : result;
}

unsigned dio_setStatusOut(const DioStatus* status) {
  check(status != nullptr, "status != NULL");
  check(status->count <= MAX_DIO_OUT_COUNT, "status->count <= MAX_DIO_OUT_COUNT");
  return for_each_number(status->count, [status](uint32_t number) {
    return dio_setValue(number, dio_getOutValueFromStatus(status, number));
  });
}

int dio_getInValueFromStatus(const DioStatus* status, uint32_t dio) {
  check(status != nullptr, "status != NULL");
  check(dio < status->count + DIORONUMBER_MIN, "dio < status->count + DIORONUMBER_MIN");
  return get_bit(status, dio_getIndexMaskIn(dio));
}

int dio_getOutValueFromStatus(const DioStatus* status, uint32_t dio) {
  check(status != nullptr, "status != NULL");
  check(dio < status->count + DIORWNUMBER_MIN, "dio < status->count + DIORWNUMBER_MIN");
  return get_bit(status, dio_getIndexMaskOut(dio));
}

void dio_setInValueInStatus(DioStatus* status, uint32_t dio, int value) {
  check(status != nullptr, "status != NULL");
  check(dio < status->count + DIORONUMBER_MIN, "dio < status->count + DIORONUMBER_MIN");
  set_bit(status, dio_getIndexMaskIn(dio), value != 0);
}

void dio_setOutValueInStatus(DioStatus* status, uint32_t dio, int value) {
  check(status != nullptr, "status != NULL");
  check(dio < status->count + DIORWNUMBER_MIN, "dio < status->count + DIORWNUMBER_MIN");
  set_bit(status, dio_getIndexMaskOut(dio), value != 0);
}
