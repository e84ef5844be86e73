// sms: sends a short message, or prints those that have come, the oldest first, and removes them.
//
//     sms ADDRESS TEXT
//     sms

#include <rkutils/simple_sms.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

static void print(CSimpleSMS const& sms) {
  std::printf("%s, %s:\n%s\n", sms.address.c_str(), sms.received.c_str(), sms.text.c_str());
}

static void print_and_remove_all() {
  std::vector<std::pair<long, std::string>> ids;
  CSimpleSMS::RetrieveIncomingIds(ids);
  std::sort(ids.begin(), ids.end());
  for (auto const& id : ids) {
    const std::unique_ptr<CSimpleSMS> sms(CSimpleSMS::getIncomingSMSById(id.second));
    if (sms == nullptr) continue;  // the log says why
    print(*sms);
    CSimpleSMS::DeleteIncomingSMSById(id.second);
  }
}

int main(int argc, char** argv) {
  if (argc == 3) return CSimpleSMS(argv[1], argv[2]).send() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
  print_and_remove_all();
  return EXIT_SUCCESS;
}
