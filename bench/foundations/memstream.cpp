// Memory streams.

#include <rkutils/memstream.h>

#include <cstring>
#include <sstream>

#include <benchmark/benchmark.h>

#include "foundations/rows.h"
#include "support/comparison.h"

namespace bench::foundations {
namespace {

using benchmark::State;

constexpr std::size_t kSize = 512;
// A status line, put together from names and values.
constexpr const char* kPieces[] = {
    "interface ",    "wwan0",      ", address ",  "192.0.2.17", ", netmask ",
    "255.255.255.0", ", gateway ", "192.0.2.1",   ", state ",   "up",
    ", signal ",     "-71",        " dBm, cell ", "1A2D401",    ", network ",
    "LTE",           ", uptime ",  "86400",       " s",         "\n"};
static_assert(std::size(kPieces) == 20);

struct Stream {
  char* next;
  std::size_t left;
};

int put(Stream* stream, const char* text) {
  const std::size_t length = ::strnlen(text, stream->left);
  if (length == stream->left) return 1;
  std::memcpy(stream->next, text, length + 1);
  stream->next += length;
  stream->left -= length;
  return 0;
}

// As a shared library's function is called.
int (*volatile put_by_pointer)(Stream*, const char*) = put;

}  // namespace

void add_memstream_rows() {
  compare("memory stream, 20 puts",
          [](State& state) {
            char buffer[kSize];
            for (auto _ : state) {
              mem_stream stream = {buffer, sizeof buffer};
              for (const char* piece : kPieces) mem_stream_puts(&stream, piece);
              benchmark::DoNotOptimize(&stream);
              benchmark::DoNotOptimize(&buffer);
            }
          },
          {peer("std::ostringstream", 0.35,
                [](State& state) {
                  for (auto _ : state) {
                    std::ostringstream stream;
                    for (const char* piece : kPieces) stream << piece;
                    benchmark::DoNotOptimize(&stream);
                  }
                }),
           floor("strnlen and memcpy", 1.3, [](State& state) {
             char buffer[kSize];
             for (auto _ : state) {
               Stream stream = {buffer, sizeof buffer};
               for (const char* piece : kPieces) put_by_pointer(&stream, piece);
               benchmark::DoNotOptimize(&stream);
               benchmark::DoNotOptimize(&buffer);
             }
           })});
}

}  // namespace bench::foundations
