// digest_table FOLDER: fills an empty folder with messages, and with the digests that the library
// and the plain ones of the tests make of them, so that other programs can be asked for the same:
//
//     messages/NAME   the messages
//     keys/NAME       keys, in hexadecimal digits
//     library/TABLE   for the tables md5, sha1, md5-hmac-KEY and sha1-hmac-KEY: a line for each
//     plain/TABLE     message, with its digest and name, as "md5sum --binary" has it

#include <rkutils/hash_context.h>
#include <rkutils/hmac_context.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "digests/digest_kind.h"
#include "digests/plain_digest.h"

namespace {

using digest_test::Kind;
using digest_test::some_bytes;
using Digest = std::function<std::string(const std::string& message)>;
using Texts = std::map<std::string, std::string>;

const std::filesystem::path& folder(const std::string& path = "") {
  static const std::filesystem::path folder = path;
  return folder;
}

void put(const std::string& name, const std::string& contents) {
  const std::filesystem::path path = folder() / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << contents;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

// Names are in the order of lengths, for a shell's "*".
std::string name_of(std::size_t length) {
  std::string digits = std::to_string(length);
  return std::string(6 - digits.size(), '0') + digits;
}

Texts make_messages() {
  Texts messages;
  for (std::size_t length = 0; length <= 300; ++length) {
    messages[name_of(length)] = some_bytes(length);
  }
  for (const std::size_t length : {1000U, 4096U, 100000U}) {
    messages[name_of(length)] = some_bytes(length);
  }
  return messages;
}

Texts make_keys() {
  Texts keys;
  for (const std::size_t length : {1U, 16U, 20U, 63U, 64U, 65U, 80U, 128U, 300U}) {
    std::string key = some_bytes(length);
    std::reverse(key.begin(), key.end());
    keys[name_of(length)] = key;
  }
  return keys;
}

std::string hmac_of(const Kind& kind, const std::string& key, const std::string& message) {
  const std::unique_ptr<HashContext> digest = kind.make();
  HmacContext hmac(digest.get());
  hmac.initialize(digest_test::bytes(key), key.size(), 0);
  hmac.hash(digest_test::bytes(message), message.size());
  return digest_test::hex_of(hmac, kind.length, &HmacContext::getHash);
}

void put_table(const std::string& name, const Texts& messages, const Digest& digest) {
  std::string table;
  for (const auto& [message_name, message] : messages) {
    table += digest(message) + " *" + message_name + "\n";
  }
  put(name, table);
}

void put_tables(const Kind& kind, const std::string& name, const Texts& messages,
                const Texts& keys) {
  put_table("library/" + name, messages,
            [&](const std::string& message) { return digest_test::digest_of(kind, message); });
  put_table("plain/" + name, messages,
            [&](const std::string& message) { return kind.plain(message, 0); });
  for (const auto& [key_name, bytes] : keys) {
    const std::string& key = bytes;
    std::string table = name;
    table.append("-hmac-").append(key_name);
    put_table("library/" + table, messages,
              [&](const std::string& message) { return hmac_of(kind, key, message); });
    put_table("plain/" + table, messages, [&](const std::string& message) {
      return plain_digest::hmac(kind.plain, key, message);
    });
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) return EXIT_FAILURE;
  folder(argv[1]);
  const Texts messages = make_messages();
  const Texts keys = make_keys();
  for (const auto& [name, message] : messages) put("messages/" + name, message);
  for (const auto& [name, key] : keys) put("keys/" + name, plain_digest::to_hex(key));
  put_tables(digest_test::md5(), "md5", messages, keys);
  put_tables(digest_test::sha1(), "sha1", messages, keys);
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  std::fprintf(stderr, "digest-table: %s\n", error.what());
  return EXIT_FAILURE;
}
