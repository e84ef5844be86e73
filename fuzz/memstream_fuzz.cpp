// Sequences of writes into a buffer, beside a std::string that is cut.

#include <rkutils/memstream.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "target.h"

// The buffer's size, and texts.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t room = input.byte();
  std::vector<char> buffer(room, '#');
  char outside = '#';
  mem_stream stream = {room == 0 ? &outside : buffer.data(), room};
  std::string all;
  bool written = false;
  while (!input.empty()) {
    const std::size_t kind = input.below(3);
    const fuzz::Text text(input.some_bytes());
    std::string added(text.view());
    int result = 0;
    if (kind == 0) {
      result = mem_stream_puts(&stream, text.c_str());
    } else if (kind == 1) {
      result = mem_stream_printf(&stream, "%s", text.c_str());
    } else {
      const int number = static_cast<int>(text.length()) - 100;
      result = mem_stream_printf(&stream, "%d:%5s|", number, text.c_str());
      added.insert(0, added.size() < 5 ? 5 - added.size() : 0, ' ');
      added.insert(0, std::to_string(number) + ":");
      added += '|';
    }
    const std::size_t before = std::min(all.size(), room == 0 ? 0 : room - 1);
    const bool fits = room > 0 && before + added.size() < room;
    // What comes after a cut is dropped: the stream stays at its end.
    all.resize(before);
    all += added;
    fuzz::expect_equal(result, fits ? 0 : 1, "whether it was cut");
    written = true;

    const std::string kept = all.substr(0, room == 0 ? 0 : room - 1);
    fuzz::expect_equal(mem_stream_get_num_chars_written(&stream, room), kept.size(),
                       "the characters");
    fuzz::expect_equal(mem_stream_get_num_bytes_written(&stream, room, buffer.data()),
                       buffer.data() == nullptr ? 0 : kept.size() + 1, "the bytes");
    fuzz::expect_equal(mem_stream_free_space_left(&stream), kept.size() + 1 < room,
                       "whether there is room");
    if (room > 0) fuzz::expect_equal(std::string(buffer.data()), kept, "the text");
  }
  fuzz::expect(written || room == 0 || buffer[0] == '#',
               "nothing is written before the first text");
  fuzz::expect(outside == '#', "nothing is written without room");
  return 0;
}
