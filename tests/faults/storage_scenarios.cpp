// Storage media and analogue inputs.

#include <rkutils/adc.h>
#include <rkutils/storage.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "families.h"
#include "folder.h"
#include "support/kernel_folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

// ---- Storage media ----

constexpr const char* kMountPoint = "/tmp/faults";

// A USB stick with one partition, which is mounted: the device is a file, which does not tell its
// size as a device does, and the folder is one in memory.
class Machine {
 public:
  Machine() {
    sys_.make_folder("class/block");
    sys_.make_folder("devices");
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/block")) {
      std::filesystem::remove(entry.path());
    }
    const std::string disk = "../../devices/ehci/usb1/1-1/1-1.2/1-1.2:1.0/host2/block/sda";
    for (const auto& [name, place] :
         {std::pair<std::string, std::string>("sda", disk),
          std::pair<std::string, std::string>("sda1", disk + "/sda1")}) {
      std::filesystem::create_directories("/sys/class/block/" + place);
      std::filesystem::create_symlink(place, "/sys/class/block/" + name);
    }
    proc_.put("mounts", "/dev/sda1 /tmp/faults vfat rw 0 0\n");
    proc_.put("sysinfo/usbport0/usbName", "1-1:2\n");
    support::put("/dev/sda", "");
  }
  ~Machine() { std::filesystem::remove("/dev/sda"); }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

 private:
  const support::KernelFolder sys_{"/sys"};
  const support::KernelFolder proc_{"/proc"};
};

struct Media {
  Media() = default;
  ~Media() {
    old_free_storage(list);
    std::free(list);
  }
  Media(const Media&) = delete;
  Media& operator=(const Media&) = delete;

  // "16/0 sda1 at /tmp/faults, size unknown, usage known"
  [[nodiscard]] std::string after() const {
    if (list == nullptr) return {};
    std::string text;
    list_node* node;
    list_for_each (node, &list->entries) {
      const StorageEntry& entry = *list_entry(node, StorageEntry, links);
      text += std::to_string(entry.type) + "/" + std::to_string(entry.index) + " ";
      text += entry.partition;
      if (*entry.mountpoint != '\0') text += " at " + std::string(entry.mountpoint);
      text += entry.size == 0 ? ", not opened" : ", size unknown";
      text += entry.total == UINT64_MAX ? ", usage unknown" : ", usage known";
    }
    return text.empty() ? "no medium" : text;
  }

  const Folder folder{kMountPoint};
  StorageList* list = nullptr;
};

// ---- Analogue inputs ----

constexpr const char* kRaw = "/sys/bus/iio/devices/iio:device0/in_voltage0_raw";
constexpr const char* kScale = "/sys/bus/iio/devices/iio:device0/in_voltage_scale";

Scenario with_converter(Scenario of) {
  of.surroundings = [] {
    auto sys = std::make_shared<support::KernelFolder>("/sys");
    sys->put("bus/iio/devices/iio:device0/in_voltage0_raw", "1000\n");
    sys->put("bus/iio/devices/iio:device0/in_voltage_scale", "0.5\n");
    return sys;
  };
  return of;
}

struct Voltage {
  [[nodiscard]] std::string after() const { return std::to_string(std::lround(value)); }

  float value = 77;
};

}  // namespace

Scenarios storage_media() {
  Scenario all = scenario<Media>("old_get_storage", [](Media& it) {
    it.list = old_get_storage(0);
    return made(it.list);
  });
  all.surroundings = [] { return std::make_shared<Machine>(); };
  return {all};
}

Scenarios analogue_inputs() {
  return {
      with_converter(scenario<Voltage>(
          "adc_read", [](Voltage& it) { return adc_read(kRaw, kScale, &it.value); })),
      with_converter(scenario<Nothing>("dw4600_adc_supported",
                                       [](Nothing&) { return dw4600_adc_supported(); })),
      with_converter(scenario<Voltage>(
          "dw4600_adc_read", [](Voltage& it) { return dw4600_adc_read(kRaw, &it.value); })),
      with_converter(scenario<Voltage>(
          "dw41x0_adc_read", [](Voltage& it) { return dw41x0_adc_read(kRaw, &it.value); })),
  };
}

}  // namespace faults
