// What a stand-in daemon writes down.
#ifndef TESTS_SUPPORT_STAND_IN_RECORD_H
#define TESTS_SUPPORT_STAND_IN_RECORD_H

#include <rkutils/internal/unique_file.h>

#include <string>

namespace stand_in {

struct RecordOptions {
  std::string file;  // it is appended to; none if empty
  int socket = -1;   // instead, a line a datagram; none if negative
};

class Record {
 public:
  // Without either, nothing is recorded. Throws std::system_error.
  explicit Record(const RecordOptions& options);

  // Writes the line, which gets a newline, at once and in one piece.
  void write(const std::string& line);

 private:
  rkutils::internal::UniqueFile stream_;
};

}  // namespace stand_in

#endif
