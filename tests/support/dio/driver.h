// The stand-in for the driver of digital inputs and outputs.
#ifndef TESTS_SUPPORT_DIO_DRIVER_H
#define TESTS_SUPPORT_DIO_DRIVER_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "support/dio/faults.h"
#include "support/dio/fuse_server.h"
#include "support/stand_in/record.h"

namespace stand_in {

// The driver's folder, with what is in it and how it answers.
class Driver : public FuseFiles {
 public:
  explicit Driver(Record& record);

  // Adds an input ("din...") or output, a folder of this name with its files. One that is there
  // begins anew.
  void add(const std::string& name);

  // Carries out a command of those in main.cpp. Throws std::exception when it is none.
  void obey(const std::string& word, const std::string& rest);

  mode_t look_at(const std::string& path) override;
  void open_folder(const std::string& path) override;
  std::vector<FuseEntry> list(const std::string& path) override;
  void open(const std::string& path, int flags) override;
  std::string read(const std::string& path) override;
  std::size_t write(const std::string& path, std::string_view bytes) override;
  void close(const std::string& path) override;

 private:
  struct Node {
    mode_t mode = 0;
    std::string contents;
    // Takes what is written, and returns the error that it is refused with, or 0.
    int (*take)(Node& node, std::string_view bytes) = nullptr;
    bool measuring = false;
    std::string measured;  // the contents while it does
  };

  static int take_value(Node& node, std::string_view bytes);
  static int take_measurement(Node& node, std::string_view bytes);

  Node& find(const std::string& path);
  void remove(const std::string& path);

  // Records what became of an operation.
  void put_on_record(const std::string& operation, const std::string& path, std::string_view bytes,
                     int error);
  // Records that it has failed, and fails.
  [[noreturn]] void refuse(const std::string& operation, const std::string& path,
                           std::string_view bytes, int error);
  // What the faults say to it; those that make it fail do so here.
  Verdict judge(const std::string& operation, const std::string& path, std::string_view bytes = {});

  Record& record_;
  DriverFaults faults_;
  std::map<std::string, Node> nodes_;
};

}  // namespace stand_in

#endif
