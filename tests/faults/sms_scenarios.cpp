// Short messages.

#include <rkutils/simple_sms.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

constexpr const char* kTool = "/usr/local/sbin/send-sms";

// A spool with one message, long enough for its text to need memory of its own.
struct Spool {
  Spool() {
    support::put("/var/spool/sms/incoming/message",
                 "From: +4930123456\nReceived: 2026-11-21 09:00:00\n\nunderstood, and out\n");
  }

  [[nodiscard]] std::string after() const {
    if (sms == nullptr) return {};
    return text_of(sms->address.c_str()) + " " + text_of(sms->received.c_str());
  }

  const Folder folder{"/var/spool/sms"};
  const std::string id = "message";
  std::unique_ptr<CSimpleSMS> sms;
  std::vector<std::pair<long, std::string>> ids;
};

std::string ids_of(const Spool& it) {
  std::string text = std::to_string(it.ids.size());
  for (const auto& id : it.ids) text += " " + id.second;
  return text;
}

std::string file_of(const Spool& /*it*/) {
  return std::filesystem::exists("/var/spool/sms/incoming/message") ? "there" : "gone";
}

// A tool that does nothing, and a message for it.
struct Outgoing {
  Outgoing() {
    support::put(kTool, "#!/bin/sh\nexit 0\n");
    ::chmod(kTool, 0755);
  }
  // The file is the tool's after success.
  ~Outgoing() {
    for (const std::string& path : files()) std::filesystem::remove(path);
    std::filesystem::remove(kTool);
  }
  Outgoing(const Outgoing&) = delete;
  Outgoing& operator=(const Outgoing&) = delete;

  static std::vector<std::string> files() {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
      const std::string path = entry.path();
      if (path.find("/outgoing-sms.") != std::string::npos) paths.push_back(path);
    }
    return paths;
  }

  // What the tool has been given.
  [[nodiscard]] static std::string after() {
    std::string text;
    for (const std::string& path : files()) {
      std::ifstream file(path);
      text = std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return files().empty() ? "no file" : text_of(text.c_str());
  }

  CSimpleSMS sms{"+4930123456", "uplink restored"};
};

}  // namespace

Scenarios sms() {
  return {
      scenario<Spool>(
          "CSimpleSMS::DeleteIncomingSMSById", kPrepared,
          [](Spool& it) { return with_errno(CSimpleSMS::DeleteIncomingSMSById(it.id)); }, file_of),
      scenario<Spool>(
          "CSimpleSMS::RetrieveIncomingIds", kPrepared,
          [](Spool& it) {
            CSimpleSMS::RetrieveIncomingIds(it.ids);
            return Word{"done"};
          },
          ids_of),
      scenario<Spool>("CSimpleSMS::getIncomingSMSById",
                      [](Spool& it) {
                        it.sms.reset(CSimpleSMS::getIncomingSMSById(it.id));
                        return made(it.sms.get());
                      }),
      scenario<Outgoing>("CSimpleSMS::send", [](Outgoing& it) { return it.sms.send(); }),
  };
}

}  // namespace faults
