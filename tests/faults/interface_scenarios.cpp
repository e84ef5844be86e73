// Interfaces: their state, their names, links to the outside, bridges and providers.

#include <rkutils/interface.h>

#include <cstdio>

#include "families.h"
#include "folder.h"
#include "support/kernel_folder.h"
#include "support/network/surroundings.h"
#include "support/printing_program.h"
#include "support/put_file.h"

namespace faults {
namespace {

constexpr unsigned kAddress = 0x0A010001;
constexpr unsigned kMask = 0xFFFFFF00;

Scenario with_interfaces(Scenario of) {
  of.surroundings = [] { return std::make_shared<support::Surroundings>(); };
  return of;
}

// The router's interface, as it is at the beginning of each run.
struct Interface {
  Interface() {
    interfaces.setInterfaceUp("wan0", 1);
    interfaces.setIpV4Address("wan0", kAddress);
    interfaces.setIpV4Mask("wan0", kMask);
  }

  // What it is like then.
  [[nodiscard]] std::string after() const {
    char text[64];
    std::snprintf(text, sizeof text, "%s %08x/%08x",
                  interfaces.isInterfaceUp("wan0") ? "up" : "down",
                  interfaces.getIpV4Address("wan0"), interfaces.getIpV4Mask("wan0"));
    return text;
  }

  const IpInterfaceStatus interfaces;
};

// An address as people write it in hexadecimal.
struct Hexadecimal {
  unsigned number;
};
std::string text_of(Hexadecimal address) {
  char text[16];
  std::snprintf(text, sizeof text, "%08x", address.number);
  return text;
}

constexpr const char* kLinks = "/tmp/status/link-manager";

// Two links to the outside that are in use.
struct Links {
  Links() {
    support::put(std::string(kLinks) + "/wanlink1/state", "online\n");
    support::put(std::string(kLinks) + "/wanlink2/state", "online\n");
    support::put(std::string(kLinks) + "/hotlink/interface", "wwan0\n");
  }

  static std::string after() { return {}; }

  const Folder folder{"/tmp/status"};
  const IpInterfaceStatus interfaces;
};

// The second of two radios.
struct Radio {
  Radio() { support::put("/tmp/status/wlan/status-wlan0", "dualmode\n"); }

  static std::string after() { return {}; }

  const Folder folder{"/tmp/status"};
};

Scenario with_two_radios(Scenario of) {
  of.surroundings = [] {
    auto proc = std::make_shared<support::KernelFolder>("/proc");
    proc->put("sysinfo/wlan1/type", "802.11ac\n");
    return proc;
  };
  return of;
}

// The tool that lists bridges. What it prints fits one read.
Scenario with_bridge(Scenario of) {
  of.surroundings = [] {
    auto brctl = std::make_shared<support::PrintingProgram>("/usr/sbin/brctl");
    brctl->print(
        "bridge name\tbridge id\t\tSTP enabled\tinterfaces\n"
        "br0\t\t8000.020000000101\tno\t\teth0\n\t\t\t\t\t\t\teth1\n");
    return brctl;
  };
  return of;
}

struct Bridge {
  [[nodiscard]] std::string after() const { return faults::text_of(members); }

  char members[64] = "untouched";
};

Scenario with_providers(Scenario of) {
  of.surroundings = [] {
    auto pdb = std::make_shared<support::PrintingProgram>("/usr/bin/pdb");
    pdb->print("provider: Northern Mobile\n");
    return pdb;
  };
  return of;
}

}  // namespace

Scenarios interfaces() {
  return {
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::isInterfaceAvailable",
          [](Interface& it) { return it.interfaces.isInterfaceAvailable("wan0"); })),
      with_interfaces(
          scenario<Interface>("IpInterfaceStatus::isInterfaceUp",
                              [](Interface& it) { return it.interfaces.isInterfaceUp("wan0"); })),
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::setInterfaceUp",
          [](Interface& it) { return it.interfaces.setInterfaceUp("wan0", 0); })),
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::setTxQueueLen",
          [](Interface& it) { return it.interfaces.setTxQueueLen("wan0", 500); })),
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::getIpV4Address",
          [](Interface& it) { return Hexadecimal{it.interfaces.getIpV4Address("wan0")}; })),
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::setIpV4Address",
          [](Interface& it) { return it.interfaces.setIpV4Address("wan0", kAddress + 6); })),
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::getIpV4Mask",
          [](Interface& it) { return Hexadecimal{it.interfaces.getIpV4Mask("wan0")}; })),
      with_interfaces(scenario<Interface>(
          "IpInterfaceStatus::setIpV4Mask",
          [](Interface& it) { return it.interfaces.setIpV4Mask("wan0", 0xFFFF0000); })),
      scenario<Links>("IpInterfaceStatus::haveNetworkConnectivity",
                      [](Links& it) { return it.interfaces.haveNetworkConnectivity(); }),
      scenario<Links>("wanlink_is_up", [](Links&) { return wanlink_is_up(); }),
      scenario<Links>("wanlink_count", [](Links&) { return wanlink_count(); }),
      with_two_radios(
          scenario<Radio>("interfaceize", [](Radio&) { return Word{interfaceize("wlan0-1")}; })),
      with_bridge(scenario<Bridge>(
          "bridge_members",
          [](Bridge& it) { return bridge_members("br0", it.members, sizeof it.members); })),
      with_providers(scenario<Nothing>(
          "pdb_find_provider",
          [](Nothing&) { return static_cast<const char*>(pdb_find_provider("26201")); })),
  };
}

}  // namespace faults
