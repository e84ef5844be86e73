// file-digests: prints digests of files, as md5sum and sha1sum do, or codes that only those can
// make who have the key.
//
//     file-digests md5|sha1 FILE...
//     file-digests hmac-md5|hmac-sha1 KEY FILE...
//
// The exit status is 1 if a file cannot be read. A real program takes its key from elsewhere:
// arguments are seen by everyone.

#include <rkutils/hash_context.h>
#include <rkutils/hmac_context.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

// Takes the whole file, with a digest or an HMAC that has been started.
template <typename Context>
bool take_file(Context& context, const char* path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "rb"), std::fclose);
  if (file == nullptr) return false;
  unsigned char buffer[4096];
  while (const std::size_t length = std::fread(buffer, 1, sizeof buffer, file.get())) {
    context.hash(buffer, length);
  }
  return std::ferror(file.get()) == 0;
}

template <typename Context>
bool print_digest(Context& context, const char* path) {
  if (!take_file(context, path)) {
    std::fprintf(stderr, "file-digests: cannot read %s\n", path);
    return false;
  }
  unsigned char digest[20];  // the longer one's
  context.getHash(digest);
  for (unsigned long i = 0; i < context.getReturnedHashLength(); ++i) {
    std::printf("%02x", static_cast<unsigned>(digest[i]));
  }
  std::printf("  %s\n", path);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc < 2 ? "" : argv[1];
  const bool with_key = what.rfind("hmac-", 0) == 0;
  const std::string name = with_key ? what.substr(std::strlen("hmac-")) : what;
  if ((name != "md5" && name != "sha1") || (with_key && argc < 3)) {
    std::fprintf(stderr,
                 "usage: file-digests md5|sha1 FILE...\n"
                 "       file-digests hmac-md5|hmac-sha1 KEY FILE...\n");
    return EXIT_FAILURE;
  }
  Md5HashContext md5;
  Sha1HashContext sha1;
  HashContext* const digest = name == "md5" ? static_cast<HashContext*>(&md5) : &sha1;
  HmacContext hmac(digest);

  int status = EXIT_SUCCESS;
  for (char** file = argv + (with_key ? 3 : 2); *file != nullptr; ++file) {
    bool printed = false;
    if (with_key) {
      const auto* const key = reinterpret_cast<const unsigned char*>(argv[2]);
      printed = hmac.initialize(key, std::strlen(argv[2]), 0) == 0 && print_digest(hmac, *file);
    } else {
      printed = digest->initialize(0) == 0 && print_digest(*digest, *file);
    }
    if (!printed) status = EXIT_FAILURE;
  }
  return status;
}
