// Interfaces by the names that are shown to users.

#include <rkutils/export.h>
#include <rkutils/file.h>
#include <rkutils/foundations/text/ascii.h>
#include <rkutils/foundations/text/prefix.h>
#include <rkutils/interface.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/text.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

using rkutils::text::begins_with;
using rkutils::text::is_digit;

constexpr std::size_t kDisplaySize = 15;

// The digits of a name that make one number; those that are too many are left out.
class Number {
 public:
  void add(char digit) {
    if (digits_ == kMostDigits) return;
    value_ = value_ * 10 + (digit - '0');
    ++digits_;
  }
  [[nodiscard]] bool is_empty() const { return digits_ == 0; }
  [[nodiscard]] int value() const { return value_; }

 private:
  static constexpr int kMostDigits = 6;
  int value_ = 0;
  int digits_ = 0;
};

// What the kernel calls an interface, "ath0-12": letters, a number, a number behind a dash.
struct KernelName {
  explicit KernelName(const char* name);

  char prefix[kDisplaySize] = "";
  Number first;
  Number second;
  std::size_t length;  // of all of it
};

KernelName::KernelName(const char* name) : length(std::strlen(name)) {
  std::size_t prefix_length = 0;
  bool behind_dash = false;
  for (; *name != '\0'; ++name) {
    if (*name == '-') {
      behind_dash = true;
    } else if (is_digit(*name)) {
      (behind_dash ? second : first).add(*name);
    } else if (first.is_empty() && prefix_length < sizeof prefix - 1) {
      prefix[prefix_length++] = *name;
    }
  }
}

// The text that is shown, cut where there is no more room.
class Display {
 public:
  void show(const char* format, ...) RK_PRINTF(2, 3);
  char* text() { return text_; }

 private:
  char text_[kDisplaySize];
};

void Display::show(const char* format, ...) {
  va_list values;
  va_start(values, format);
  std::vsnprintf(text_, sizeof text_, format, values);
  va_end(values);
}

// A long name is one of PPPoE, whatever makes it long. The kernel's are shorter, but programs may
// ask for others and know what comes out.
void show_ppp(Display& display, const KernelName& name) {
  const int unit = name.first.value();
  if (unit >= 10 && unit <= 19) {
    display.show("SERIAL%d", unit - 9);
  } else if (name.length >= 20 && name.length <= 29) {
    display.show("PPPOE%d", unit - 19);
  } else {
    display.show("PPP%d", unit + 1);
  }
}

// One of the networks of a radio. A device with a single radio shows the network alone.
void show_wireless(Display& display, const char* prefix, int radio, int network) {
  const rkutils::internal::PostponedCancellation postponed;
  const bool has_second_radio = *readfile("/proc/sysinfo/wlan1/type") != '\0';
  char path[sizeof "/tmp/status/wlan/status-wlan999999"];
  std::snprintf(path, sizeof path, "/tmp/status/wlan/status-wlan%d", radio);
  const char* const status = readfile(path);
  const int more = begins_with(status, "dualmode") || begins_with(status, "mesh-ap") ? 1 : 0;
  if (has_second_radio) {
    display.show("%s%d-%d", prefix, radio + 1, network + more);
  } else {
    display.show("%s%d", prefix, network + 1 + more);
  }
}

void show(Display& display, KernelName name) {
  if (name.first.is_empty()) return display.show("%s", strtoupper(name.prefix));
  if (std::strcmp(name.prefix, "ppp") == 0) return show_ppp(display, name);
  const int number = name.first.value();
  if (std::strcmp(name.prefix, "gretun") == 0) return display.show("GRE%d", number + 1);
  const bool is_wireless = begins_with(name.prefix, "wlan");
  const char* const prefix = strtoupper(name.prefix);
  if (name.second.is_empty()) return display.show("%s%d", prefix, number + 1);
  const int second = name.second.value();
  if (is_wireless) return show_wireless(display, prefix, number, second);
  display.show("%s%d-%d", prefix, number + 1, second + 1);
}

}  // namespace

char* interfaceize(const char* name) {
  static Display display;
  show(display, KernelName(name == nullptr ? "" : name));
  return display.text();
}
