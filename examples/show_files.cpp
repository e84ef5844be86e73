// show-files: prints one-line files, such as those below /proc/sys and /tmp/status, with their
// names.
//
//     show-files FILE...

#include <rkutils/file.h>
#include <rkutils/string.h>

#include <cstdio>

int main(int argc, char** argv) {
  String report;
  for (int i = 1; i < argc; ++i) {
    const String path(argv[i]);
    const String name = path.substring(path.lastIndexOf('/') + 1);
    const String text = readfile(argv[i]);  // a copy: the next call overwrites the library's buffer
    report.concatf("%s: %s\n", name.c_str(), text == "" ? "(nothing)" : text.c_str());
  }
  std::fputs(report.c_str(), stdout);
  return 0;
}
