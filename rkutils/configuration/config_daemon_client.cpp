#include <rkutils/config_daemon_client.h>
#include <rkutils/configuration/indexed_key.h>
#include <rkutils/foundations/text/decimal.h>
#include <rkutils/memory.h>

#include <cstddef>
#include <cstdio>
#include <optional>

namespace {

// The characters of a text that, with its NUL, fills a field.
template <std::size_t kSize>
constexpr int room_of(const char (&/*field*/)[kSize]) noexcept {
  return static_cast<int>(kSize) - 1;
}

// False, with the field as it was, for a text that does not fit.
template <std::size_t kSize>
bool copy(char (&field)[kSize], String const& text) noexcept {
  if (text.length() > room_of(field)) return false;
  strlcpy(field, text.c_str(), kSize);
  return true;
}

// The array of one entry that every call exchanges.
class SingleEntry {
 public:
  [[nodiscard]] bool set_key(String const& key) noexcept { return copy(entries_[0].key, key); }

  // The pattern must fit as a key does, and so must the key that it makes.
  [[nodiscard]] bool set_key(String const& pattern, unsigned long index) {
    const int room = room_of(entries_[0].key);
    if (pattern.length() > room) return false;
    const std::optional<String> key = rkutils::configuration::indexed_key(pattern, index, room);
    return key && set_key(*key);
  }

  [[nodiscard]] bool set_value(String const& value) noexcept {
    return copy(entries_[0].value, value);
  }

  // True, as with a text that fits: every number does.
  [[nodiscard]] bool set_value(long value) noexcept {
    std::snprintf(entries_[0].value, sizeof entries_[0].value, "%ld", value);
    return true;
  }

  // These two fail without a connection.
  [[nodiscard]] bool assign(configd_connection* connection) const noexcept {
    return configd_set(connection, entries_) == 0;
  }
  [[nodiscard]] bool fetch(configd_connection* connection) noexcept {
    return configd_get(connection, entries_) == 0;
  }

  [[nodiscard]] const char* value() const noexcept { return entries_[0].value; }
  [[nodiscard]] long number() const noexcept { return rkutils::text::read_decimal(value()); }

 private:
  configd_query entries_[2] = {};  // the second one's empty key ends the array
};

}  // namespace

ConfigDaemonClient::ConfigDaemonClient() : connection_(configd_open()) {}

ConfigDaemonClient::~ConfigDaemonClient() { configd_close(connection_); }

bool ConfigDaemonClient::setValue(String const& key, String const& value) const {
  SingleEntry entry;
  return entry.set_key(key) && entry.set_value(value) && entry.assign(connection_);
}

bool ConfigDaemonClient::setValueAsInt(String const& key, long value) const {
  SingleEntry entry;
  return entry.set_key(key) && entry.set_value(value) && entry.assign(connection_);
}

bool ConfigDaemonClient::setIndexedValue(String const& key, unsigned long index,
                                         String const& value) const {
  SingleEntry entry;
  return entry.set_key(key, index) && entry.set_value(value) && entry.assign(connection_);
}

bool ConfigDaemonClient::setIndexedValueAsInt(String const& key, unsigned long index,
                                              long value) const {
  SingleEntry entry;
  return entry.set_key(key, index) && entry.set_value(value) && entry.assign(connection_);
}

String& ConfigDaemonClient::getValue(String const& key, String& value) const {
  SingleEntry entry;
  if (entry.set_key(key) && entry.fetch(connection_)) value = entry.value();
  return value;
}

long ConfigDaemonClient::getValueAsInt(String const& key, long& value) const {
  SingleEntry entry;
  if (entry.set_key(key) && entry.fetch(connection_)) value = entry.number();
  return value;
}

String& ConfigDaemonClient::getIndexedValue(String const& key, unsigned long index,
                                            String& value) const {
  SingleEntry entry;
  if (entry.set_key(key, index) && entry.fetch(connection_)) value = entry.value();
  return value;
}

long ConfigDaemonClient::getIndexedValueAsInt(String const& key, unsigned long index,
                                              long& value) const {
  SingleEntry entry;
  if (entry.set_key(key, index) && entry.fetch(connection_)) value = entry.number();
  return value;
}
