#include <rkutils/config_daemon_client.h>
#include <rkutils/configuration/indexed_key.h>
#include <rkutils/foundations/text/decimal.h>
#include <rkutils/memory.h>

#include <cstddef>
#include <cstdio>

namespace {

// Whether a text of this length, negative where it has none, and its NUL fit into a field.
template <std::size_t kSize>
constexpr bool fits(const char (&/*field*/)[kSize], long length) noexcept {
  return length >= 0 && length < static_cast<long>(kSize);
}

// False, with the field as it was, for a text that does not fit.
template <std::size_t kSize>
bool copy(char (&field)[kSize], String const& text) noexcept {
  if (!fits(field, text.length())) return false;
  strlcpy(field, text.c_str(), kSize);
  return true;
}

// The array of one entry that every call exchanges.
class SingleEntry {
 public:
  [[nodiscard]] bool set_key(String const& key) noexcept { return copy(entries_[0].key, key); }

  // The pattern must fit as a key does, and so must the key that it makes.
  [[nodiscard]] bool set_key(String const& pattern, unsigned long index) {
    using rkutils::configuration::indexed_key;
    using rkutils::configuration::indexed_key_length;
    return fits(entries_[0].key, pattern.length()) &&
           fits(entries_[0].key, indexed_key_length(pattern, index)) &&
           copy(entries_[0].key, indexed_key(pattern, index));
  }

  [[nodiscard]] bool set_value(String const& value) noexcept {
    return copy(entries_[0].value, value);
  }

  bool set_value(long value) noexcept {
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
