// Digital inputs and outputs, with plain folders and files in the driver's place.

#include <rkutils/dio.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "families.h"
#include "folder.h"
#include "support/kernel_folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

constexpr const char* kFolder = "/sys/devices/halcyonix";

std::string path_of(const std::string& name) { return std::string(kFolder) + "/" + name; }

std::string text_in(const std::string& name) {
  std::ifstream file(path_of(name));
  std::string text;
  std::getline(file, text);
  return text;
}

// A result code, and what errno tells of a failed system call.
struct DioResult {
  unsigned code;
  int error;
};
DioResult with_cause(unsigned code) { return {code, errno}; }
std::string text_of(DioResult result) {
  const bool tells = result.code == DIO_ERR_NOENT || result.code == DIO_ERR_IO;
  return std::to_string(result.code) + (tells ? " " + name_of_error(result.error) : "");
}

// Two inputs and two outputs, the first of each being on.
struct Driver {
  Driver() {
    support::put(path_of("din1/value"), "1\n");
    support::put(path_of("din2/value"), "0\n");
    support::put(path_of("dout1/value"), "1\n");
    support::put(path_of("dout2/value"), "0\n");
    support::put(path_of("din1/frequency"), "12 3 456\n");
  }

  static std::string after() { return {}; }

  const Folder folder{kFolder};
};

// With what is asked for.
struct Counting : Driver {
  [[nodiscard]] std::string after() const { return std::to_string(count); }

  uint32_t count = 77;
};

struct Reading : Driver {
  [[nodiscard]] std::string after() const { return std::to_string(value); }

  unsigned char value = 77;
};

struct Measuring : Driver {
  [[nodiscard]] std::string after() const {
    return std::to_string(frequency.first) + " " + std::to_string(frequency.second) + " " +
           std::to_string(frequency.value);
  }

  DioFrequency frequency = {77, 77, 77};
};

struct Switching : Driver {
  [[nodiscard]] static std::string after() { return text_in("dout1/value"); }
};

struct SwitchingAll : Driver {
  SwitchingAll() {
    status.count = 2;
    dio_setOutValueInStatus(&status, 2, 1);
  }

  [[nodiscard]] static std::string after() {
    return text_in("dout1/value") + text_in("dout2/value");
  }

  DioStatus status = {};
};

struct SwitchingMeasurement : Driver {
  SwitchingMeasurement() { support::put(path_of("din1/frequency"), ""); }

  [[nodiscard]] static std::string after() { return '"' + text_in("din1/frequency") + '"'; }
};

// Both directions; those that are not asked for stay untouched.
struct Status : Driver {
  Status() { std::memset(&all, 0, sizeof all); }

  [[nodiscard]] std::string after() const { return text_of(all.in) + ", " + text_of(all.out); }

  static std::string text_of(const DioStatus& status) {
    return std::to_string(status.count) + " of bits " + std::to_string(status.bits[0]);
  }

  DioStatusAll all;
};

// What counts remembers the counts of the last time, which are none here.
template <typename State, typename Act>
Scenario counting(std::string name, Act act) {
  return in(Process::kFresh, scenario<State>(std::move(name), act));
}

}  // namespace

Scenarios inputs_and_outputs() {
  Scenarios all = {
      counting<Counting>("dio_count",
                         [](Counting& it) { return with_cause(dio_count(&it.count)); }),
      counting<Counting>("dio_roCount",
                         [](Counting& it) { return with_cause(dio_roCount(&it.count)); }),
      counting<Counting>("dio_rwCount",
                         [](Counting& it) { return with_cause(dio_rwCount(&it.count)); }),
      scenario<Reading>("dio_roValue",
                        [](Reading& it) { return with_cause(dio_roValue(1, &it.value)); }),
      scenario<Reading>("dio_rwValue",
                        [](Reading& it) { return with_cause(dio_rwValue(1, &it.value)); }),
      scenario<Switching>("dio_setValue",
                          [](Switching&) { return with_cause(dio_setValue(1, 0)); }),
      scenario<Measuring>(
          "dio_frequency",
          [](Measuring& it) { return with_cause(dio_frequency(1, &it.frequency)); }),
      scenario<Reading>("dio_frequencyActive",
                        [](Reading& it) { return with_cause(dio_frequencyActive(1, &it.value)); }),
      scenario<SwitchingMeasurement>(
          "dio_setFrequencyActive on",
          [](SwitchingMeasurement&) { return with_cause(dio_setFrequencyActive(1, 1)); }),
      scenario<SwitchingMeasurement>(
          "dio_setFrequencyActive off",
          [](SwitchingMeasurement&) { return with_cause(dio_setFrequencyActive(1, 0)); }),
      counting<Status>("dio_getStatusIn",
                       [](Status& it) { return with_cause(dio_getStatusIn(&it.all.in)); }),
      counting<Status>("dio_getStatusOut",
                       [](Status& it) { return with_cause(dio_getStatusOut(&it.all.out)); }),
      counting<Status>("dio_getStatus",
                       [](Status& it) { return with_cause(dio_getStatus(&it.all)); }),
      scenario<SwitchingAll>(
          "dio_setStatusOut",
          [](SwitchingAll& it) { return with_cause(dio_setStatusOut(&it.status)); }),
  };
  for (Scenario& each : all) {
    each.surroundings = [] {
      auto sys = std::make_shared<support::KernelFolder>("/sys");
      sys->make_folder("devices/halcyonix");
      return sys;
    };
  }
  return all;
}

}  // namespace faults
