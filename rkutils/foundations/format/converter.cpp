#include <rkutils/foundations/format/converter.h>

namespace rkutils::format {

void store_count(const Conversion& conversion, Arguments& arguments, std::uint64_t count) noexcept {
  switch (conversion.length) {
    case Length::kChar:
      *arguments.next<signed char*>() = static_cast<signed char>(count);
      break;
    case Length::kShort:
      *arguments.next<short*>() = static_cast<short>(count);
      break;
    case Length::kInt:
      *arguments.next<int*>() = static_cast<int>(count);
      break;
    case Length::kLong:
      *arguments.next<long*>() = static_cast<long>(count);
      break;
    case Length::kLongLong:
      *arguments.next<long long*>() = static_cast<long long>(count);
      break;
  }
}

}  // namespace rkutils::format
