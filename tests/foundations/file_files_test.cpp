// Single files: dropfile(), writefile() and delete_regular_file().

#include <rkutils/file.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "file_fixture.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

using Dropfile = FileTest;

TEST_F(Dropfile, RemovesAReadableFile) {
  put(at("one"), "text");
  EXPECT_EQ(dropfile(at("one").c_str()), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(Dropfile, FailsWhereThereIsNothing) {
  EXPECT_EQ(dropfile(at("one").c_str()), -1);
  EXPECT_EQ(dropfile(at("no/one").c_str()), -1);
  EXPECT_EQ(dropfile(""), -1);
  EXPECT_EQ(dropfile(nullptr), -1);
}

TEST_F(Dropfile, LeavesAFileThatIsNotReadable) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0200);
  int result = 0;
  run_without_override([&] { result = dropfile(at("one").c_str()); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(exists(at("one")));
}

TEST_F(Dropfile, AsksForTheRealUser) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0600);
  int result = 0;
  run_for_nobody([&] { result = dropfile(at("one").c_str()); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(exists(at("one")));
}

TEST_F(Dropfile, SucceedsThoughADirectoryStays) {
  make_folders(at("folder"));
  EXPECT_EQ(dropfile(at("folder").c_str()), 0);
  EXPECT_TRUE(exists(at("folder")));
}

TEST_F(Dropfile, SucceedsThoughAReadOnlyDiskKeepsTheFile) {
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  put(at("disk/one"), "text");
  disk.make_read_only();
  EXPECT_EQ(dropfile(at("disk/one").c_str()), 0);
  EXPECT_TRUE(exists(at("disk/one")));
}

TEST_F(Dropfile, RemovesALinkAndNotItsTarget) {
  put(at("one"), "text");
  make_link("one", at("link"));
  EXPECT_EQ(dropfile(at("link").c_str()), 0);
  EXPECT_THAT(tree(), ElementsAre(testing::Pair("one", "file 644 text")));
}

TEST_F(Dropfile, LeavesALinkThatLeadsNowhere) {
  make_link("nowhere", at("link"));
  EXPECT_EQ(dropfile(at("link").c_str()), -1);
  EXPECT_TRUE(exists(at("link")));
}

using Writefile = FileTest;

TEST_F(Writefile, WritesTheTextAndANewline) {
  EXPECT_EQ(writefile(at("one").c_str(), "text"), 0);
  EXPECT_THAT(tree(), ElementsAre(testing::Pair("one", "file 644 text\n")));
}

TEST_F(Writefile, ReplacesWhatWasThereAndKeepsTheMode) {
  put(at("one"), "a much longer text");
  ::chmod(at("one").c_str(), 0600);
  EXPECT_EQ(writefile(at("one").c_str(), "%s"), 0);
  EXPECT_THAT(tree(), ElementsAre(testing::Pair("one", "file 600 %s\n")));
}

TEST_F(Writefile, CreatesWithMode0666LessTheUmask) {
  ::umask(0);
  EXPECT_EQ(writefile(at("one").c_str(), "text"), 0);
  EXPECT_EQ(mode_of(at("one")), 0666U);
}

TEST_F(Writefile, FollowsALink) {
  make_link("one", at("link"));
  EXPECT_EQ(writefile(at("link").c_str(), "text"), 0);
  EXPECT_EQ(contents_of(at("one")), "text\n");
}

TEST_F(Writefile, OfAnEmptyTextRemovesTheFile) {
  put(at("one"), "text");
  EXPECT_EQ(writefile(at("one").c_str(), ""), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(Writefile, OfAnEmptyTextCreatesNothing) {
  EXPECT_EQ(writefile(at("one").c_str(), ""), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(Writefile, OfAnEmptyTextLeavesADirectory) {
  make_folders(at("folder"));
  EXPECT_EQ(writefile(at("folder").c_str(), ""), 0);
  EXPECT_TRUE(exists(at("folder")));
}

TEST_F(Writefile, OfAnEmptyTextSucceedsThoughAnUnreadableFileStays) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0200);
  int result = -1;
  run_without_override([&] { result = writefile(at("one").c_str(), ""); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(exists(at("one")));
}

TEST_F(Writefile, OfAnEmptyTextAsksForTheRealUser) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0600);
  int result = -1;
  run_for_nobody([&] { result = writefile(at("one").c_str(), ""); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(exists(at("one")));
}

TEST_F(Writefile, RefusesNull) {
  EXPECT_EQ(writefile(nullptr, "text"), -1);
  EXPECT_EQ(writefile(nullptr, ""), -1);
  put(at("one"), "before");
  EXPECT_EQ(writefile(at("one").c_str(), nullptr), -1);
  EXPECT_EQ(contents_of(at("one")), "before");
}

TEST_F(Writefile, LogsWhatCannotBeOpened) {
  make_folders(at("folder"));
  for (const std::string& path : {at("no/one"), at("folder"), std::string()}) {
    EXPECT_EQ(writefile(path.c_str(), "text"), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(LogLine{LOG_ERR, "unable to open " + path + " for writing"}));
  }
}

TEST_F(Writefile, KeepsTheReasonInErrno) {
  EXPECT_EQ(writefile(at("no/one").c_str(), "text"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(log_.take().size(), 1U);
}

TEST_F(Writefile, OnAReadOnlyDiskCannotOpen) {
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  disk.make_read_only();
  EXPECT_EQ(writefile(at("disk/one").c_str(), "text"), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(LogLine{LOG_ERR, "unable to open " + at("disk/one") + " for writing"}));
}

TEST_F(Writefile, WithoutADescriptorCannotOpen) {
  const std::string path = at("one");
  int result = 0;
  {
    const support::NoMoreDescriptors none;
    result = writefile(path.c_str(), "text");
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log_.take().size(), 1U);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(Writefile, FailsSilentlyOnAFullDisk) {
  make_folders(at("disk"));
  const TinyDisk disk(at("disk"));
  put(at("disk/filler"), std::string(TinyDisk::kSize - 4096, 'x'));
  EXPECT_EQ(writefile(at("disk/short").c_str(), "fits still"), 0);
  EXPECT_EQ(writefile(at("disk/none").c_str(), "text"), -1);
  EXPECT_EQ(contents_of(at("disk/none")), "");
  EXPECT_EQ(writefile("/dev/full", "text"), -1);
}

TEST_F(Writefile, WritesALongTextPastAFullDisksEndAsFarAsItGoes) {
  make_folders(at("disk"));
  const TinyDisk disk(at("disk"));
  const std::string text(2 * TinyDisk::kSize, 'x');
  EXPECT_EQ(writefile(at("disk/one").c_str(), text.c_str()), -1);
  const std::string written = contents_of(at("disk/one"));
  EXPECT_FALSE(written.empty());
  EXPECT_EQ(written, text.substr(0, written.size()));
}

TEST_F(Writefile, WritesThoughCancelled) {
  const auto write = [this](const std::string& name, int& result) {
    return support::finishes_though_cancelled([&] { result = writefile(at(name).c_str(), "abc"); });
  };
  int result = -1;
  EXPECT_TRUE(write("one", result));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contents_of(at("one")), "abc\n");
  EXPECT_TRUE(write("missing/one", result));
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), testing::SizeIs(1));
}

class WritefileLength : public FileTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(WritefileLength, IsWrittenWhole) {
  std::string text;
  for (std::size_t i = 0; i < GetParam(); ++i) text += static_cast<char>('a' + i % 26);
  int result = -1;
  support::run_on_small_stack([&] { result = writefile(at("one").c_str(), text.c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contents_of(at("one")), text + "\n");
}

INSTANTIATE_TEST_SUITE_P(Edges, WritefileLength,
                         testing::Values(1, 1023, 1024, 4094, 4095, 4096, 4097, 1000000));

// A file of /proc takes the pieces of a value as values of their own.
TEST_F(Writefile, WritesALineInOnePiece) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_DIRECT), 0);  // a write is a packet, and a read takes one
  const std::string path = "/proc/self/fd/" + std::to_string(ends[1]);
  const std::string text(4095, 'x');
  EXPECT_EQ(writefile(path.c_str(), text.c_str()), 0);
  std::string received(8192, '#');
  EXPECT_EQ(::read(ends[0], received.data(), received.size()), 4096);
  EXPECT_EQ(received.substr(0, 4096), text + "\n");
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST_F(Writefile, WaitsForAFifosReaderThroughSignals) {
  make_fifo(at("fifo"));
  const Interruption interruption;
  int result = -1;
  int error = -1;
  std::thread writer([&] {
    result = writefile(at("fifo").c_str(), "text");
    error = errno;
  });
  for (int i = 0; i < 5; ++i) Interruption::send(writer);
  EXPECT_EQ(contents_of(at("fifo")), "text\n");
  writer.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(error, 0);
}

// Interrupted, a write to a full FIFO tells of a part, or of nothing yet.
TEST_F(Writefile, WritesAllToAFifoThroughSignals) {
  make_fifo(at("fifo"));
  const Interruption interruption;
  const std::string text = std::string(500000, 'x') + std::string(500000, 'y');
  int result = -1;
  std::thread writer([&] { result = writefile(at("fifo").c_str(), text.c_str()); });
  const int fifo = ::open(at("fifo").c_str(), O_RDONLY | O_CLOEXEC);
  std::string received;
  std::string piece(20000, '#');
  for (int i = 0;; ++i) {
    if (i < 5) {
      Interruption::send(writer);  // with room for a piece at most since the last time
      Interruption::send(writer);  // with none
    }
    const ssize_t count = ::read(fifo, piece.data(), piece.size());
    if (count <= 0) break;
    received.append(piece, 0, static_cast<std::size_t>(count));
  }
  ::close(fifo);
  writer.join();
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(received == text + "\n");
}

TEST_F(Writefile, FailsWhereAFifosReaderGoesAwayAndSigpipeIsIgnored) {
  make_fifo(at("fifo"));
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  const std::string text(1000000, 'x');
  int result = 0;
  std::thread writer([&] { result = writefile(at("fifo").c_str(), text.c_str()); });
  const int fifo = ::open(at("fifo").c_str(), O_RDONLY | O_CLOEXEC);
  char byte = 0;
  EXPECT_EQ(::read(fifo, &byte, 1), 1);
  ::close(fifo);
  writer.join();
  std::signal(SIGPIPE, before);
  EXPECT_EQ(result, -1);
}

TEST_F(Writefile, FailsWhereClosingDoes) {
  const std::string path = at("one");
  const auto before = support::open_descriptors();
  int result = 0;
  support::run_with_failing_calls({{support::SystemCall::kClose, EIO}},
                                  [&] { result = writefile(path.c_str(), "text"); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(contents_of(path), "text\n");
  for (const auto& [descriptor, target] : support::open_descriptors()) {
    if (before.count(descriptor) == 0) ::close(descriptor);  // which was not done
  }
}

TEST_F(Writefile, ClearsErrno) {
  errno = 77;
  EXPECT_EQ(writefile(at("one").c_str(), "text"), 0);
  EXPECT_EQ(errno, 0);
}

TEST_F(Writefile, TakesAPathOf4095BytesAndNoLonger) {
  const std::string longest = path_of_length(folder_, 4095);
  make_folders(longest.substr(0, longest.rfind('/')));
  EXPECT_EQ(writefile(longest.c_str(), "text"), 0);
  EXPECT_EQ(contents_of(longest), "text\n");
  EXPECT_EQ(writefile((longest + "e").c_str(), "text"), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(LogLine{LOG_ERR, "unable to open " + longest + "e for writing"}));
  EXPECT_EQ(dropfile((longest + "e").c_str()), -1);
  EXPECT_EQ(delete_regular_file((longest + "e").c_str()), 0);
  EXPECT_TRUE(exists(longest));
  EXPECT_EQ(delete_regular_file(longest.c_str()), 0);
  EXPECT_FALSE(exists(longest));
}

using DeleteRegularFile = FileTest;

TEST_F(DeleteRegularFile, RemovesTheFileWhateverItsMode) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0);
  int result = -1;
  run_without_override([&] { result = delete_regular_file(at("one").c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(DeleteRegularFile, SucceedsWhereThereIsNothing) {
  EXPECT_EQ(delete_regular_file(at("one").c_str()), 0);
  EXPECT_EQ(delete_regular_file(at("no/one").c_str()), 0);
  EXPECT_EQ(delete_regular_file(""), 0);
  EXPECT_EQ(delete_regular_file(nullptr), 0);
}

TEST_F(DeleteRegularFile, LeavesWhatIsNotARegularFile) {
  put(at("target"), "text");
  make_folders(at("folder"));
  make_link("target", at("link"));
  make_link("nowhere", at("dangling"));
  make_fifo(at("fifo"));
  const Tree before = tree();
  for (const char* name : {"folder", "link", "dangling", "fifo"}) {
    EXPECT_EQ(delete_regular_file(at(name).c_str()), -1) << name;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(DeleteRegularFile, GivesTheResultOfUnlink) {
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  put(at("disk/one"), "text");
  disk.make_read_only();
  EXPECT_EQ(delete_regular_file(at("disk/one").c_str()), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_TRUE(exists(at("disk/one")));
}

}  // namespace
