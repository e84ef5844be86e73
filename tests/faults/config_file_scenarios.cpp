// Configuration files and what they tell of the device.

#include <rkutils/cfread.h>
#include <rkutils/config_reader.h>
#include <rkutils/systeminfo.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "families.h"
#include "folder.h"
#include "support/kernel_folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

using support::put;

constexpr const char* kFile = "/tmp/faults/file.conf";

struct CloseTable {
  void operator()(cfread_table* table) const { cfread_close(table); }
};

// A file that includes another, and what is made of it.
struct ConfigFiles {
  ConfigFiles() {
    list_init(&lines);
    put(kFile, "one=1\ninclude other.conf\n");
    put("/tmp/faults/other.conf", "two=2\n");
  }
  ~ConfigFiles() {
    list_node* link = nullptr;
    list_node* next = nullptr;
    list_for_each_safe (link, next, &lines) {
      auto* const line = list_entry(link, file_line, links);
      std::free(line->text);
      std::free(line);
    }
    if (first != nullptr && cfread_find_entry(table.get(), "one") == nullptr) {
      // Lost without being freed, as is documented.
      std::free(first->key);
      std::free(first->value);
      std::free(first);
    }
  }
  ConfigFiles(const ConfigFiles&) = delete;
  ConfigFiles& operator=(const ConfigFiles&) = delete;

  // The table's entries.
  [[nodiscard]] std::string after() const {
    if (table == nullptr) return {};
    std::string text;
    for (const char* const key : {"one", "two", "three"}) {
      const cfread_entry* const entry = cfread_find_entry(table.get(), key);
      if (entry != nullptr) text += std::string(key) + "=" + entry->value + " ";
    }
    return text + "count " + std::to_string(table->count);
  }

  [[nodiscard]] std::string lines_read() {
    std::string text = "lines";
    list_node* link = nullptr;
    list_for_each (link, &lines)
      text += std::string(" ") + list_entry(link, file_line, links)->text;
    return text;
  }

  const Folder folder{"/tmp/faults"};
  std::unique_ptr<cfread_table, CloseTable> table;
  cfread_entry* first = nullptr;  // of the table, where that may lose it
  list_node lines;
  int entries = 0;
};

void open_table(ConfigFiles& it) { it.table.reset(cfread_open(kFile)); }

void open_table_and_look_at_first(ConfigFiles& it) {
  open_table(it);
  it.first = cfread_find_entry(it.table.get(), "one");
}

int count_entry(const char* /*key*/, const char* /*value*/, void* entries) {
  ++*static_cast<int*>(entries);
  return 0;
}

struct Reader {
  Reader() { put("/tmp/faults/file.conf", "one=1\ncard2=2\n"); }

  [[nodiscard]] std::string after() const {
    return text_of(reader.getValue("one", "none").c_str()) + " " +
           text_of(reader.getValue("two", "none").c_str());
  }

  const Folder folder{"/tmp/faults"};
  const String path{kFile};
  const String one{"one"};
  const String two{"two"};
  const String pattern{"card%lu"};
  ConfigReader reader;
};

void initialize(Reader& it) { it.reader.initialize(it.path, 2); }

constexpr auto kNothingMore = [](auto& /*state*/) { return std::string(); };

// ---- The device ----

struct FreeInfo {
  void operator()(systeminfo* info) const { systeminfo_free(info); }
};

// What the image and who sells the device tell.
struct Device {
  Device() {
    put("/etc/default/system-info", "ONE=\"1\"\n");
    put("/etc/oem/oem.conf", "Brand=Acme\nProductType=Router\n");
  }
  ~Device() { std::remove("/etc/oem/oem.conf"); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  [[nodiscard]] std::string after() const {
    return info == nullptr ? "" : text_of(systeminfo_getvar(info.get(), "ONE"));
  }

  std::unique_ptr<systeminfo, FreeInfo> info;
};

// What the kernel tells of the boards.
std::shared_ptr<void> boards() {
  auto proc = std::make_shared<support::KernelFolder>("/proc");
  proc->put("sysinfo/dwhw", "18\n");
  proc->put("sysinfo/bd/0/prod_name", "900\n");
  proc->put("sysinfo/bd/1/prod_variant", "0\n");
  return proc;
}

template <typename Act>
Scenario with_boards(const std::string& name, Act act) {
  Scenario made = scenario<Device>(name, act);
  made.surroundings = boards;
  return made;
}

struct Markers {
  Markers() { put("/tmp/progress/sshkeys", ""); }

  static std::string after() { return {}; }

  const Folder folder{"/tmp/progress"};
};

struct Sim {
  Sim() { put("/dev/sim", ""); }
  ~Sim() { std::remove("/dev/sim"); }
  Sim(const Sim&) = delete;
  Sim& operator=(const Sim&) = delete;

  static std::string after() { return {}; }
};

}  // namespace

Scenarios cfread() {
  return {
      scenario<ConfigFiles>(
          "cfread_find_entry", open_table,
          [](ConfigFiles& it) { return made(cfread_find_entry(it.table.get(), "two")); }),
      scenario<ConfigFiles>("cfread_close", open_table,
                            [](ConfigFiles& it) {
                              it.table.reset();
                              return Word{"done"};
                            }),
      in(Process::kOwn, scenario<ConfigFiles>("cfread_open",
                                              [](ConfigFiles& it) {
                                                open_table(it);
                                                return made(it.table.get());
                                              })),
      scenario<ConfigFiles>(
          "cfread_parse_with_callback", kPrepared,
          [](ConfigFiles& it) {
            return cfread_parse_with_callback(kFile, count_entry, &it.entries, false);
          },
          [](ConfigFiles& it) { return std::to_string(it.entries) + " entries"; }),
      // Its slots are there already, so that memory is for the entry alone.
      scenario<ConfigFiles>(
          "cfread_set_entry", open_table_and_look_at_first,
          [](ConfigFiles& it) { return made(cfread_set_entry(it.table.get(), "three", "3")); }),
      scenario<ConfigFiles>(
          "cfread_set_entry of one that is there", open_table_and_look_at_first,
          [](ConfigFiles& it) { return made(cfread_set_entry(it.table.get(), "two", "3")); }),
      scenario<ConfigFiles>(
          "read_file_lines", kPrepared,
          [](ConfigFiles& it) { return read_file_lines(kFile, &it.lines); },
          [](ConfigFiles& it) { return it.lines_read(); }),
  };
}

Scenarios config_reader() {
  return {
      in(Process::kOwn, scenario<Reader>("ConfigReader::add", initialize,
                                         [](Reader& it) { return it.reader.add(it.two, it.one); })),
      in(Process::kOwn, scenario<Reader>("ConfigReader::cleanup", initialize,
                                         [](Reader& it) {
                                           it.reader.cleanup();
                                           return Word{"done"};
                                         })),
      in(Process::kOwn,
         scenario<Reader>(
             "ConfigReader::getIndexedValue", initialize,
             [](Reader& it) { return it.reader.getIndexedValue(it.pattern, 2, it.one).c_str(); },
             kNothingMore)),
      in(Process::kOwn,
         scenario<Reader>(
             "ConfigReader::getIndexedValueAsInt", initialize,
             [](Reader& it) { return it.reader.getIndexedValueAsInt(it.pattern, 2, 7); },
             kNothingMore)),
      in(Process::kOwn,
         scenario<Reader>("ConfigReader::initialize",
                          [](Reader& it) { return it.reader.initialize(it.path, 2); })),
  };
}

Scenarios system_info() {
  return {
      in(Process::kFresh, with_boards("dwhw", [](Device& /*it*/) { return dwhw(); })),
      with_boards("get_extension_variant", [](Device& /*it*/) { return get_extension_variant(); }),
      with_boards("get_product",
                  [](Device& /*it*/) { return static_cast<const char*>(get_product()); }),
      in(Process::kFresh, with_boards("has_poe", [](Device& /*it*/) { return has_poe(); })),
      scenario<Sim>("has_sim_holder", [](Sim& /*it*/) { return has_sim_holder(); }),
      scenario<Markers>("in_maintenance", [](Markers& /*it*/) { return in_maintenance(); }),
      scenario<Device>("oem", [](Device& /*it*/) { return oem("Brand"); }),
      scenario<Device>("systeminfo_init",
                       [](Device& it) {
                         it.info.reset(systeminfo_init());
                         return made(it.info.get());
                       }),
  };
}

}  // namespace faults
