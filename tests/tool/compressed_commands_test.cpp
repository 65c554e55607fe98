// qor pack, unpack, cat, check and info, run as a program on real files.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <filesystem>
#include <tuple>

#include "support/os_support.h"
#include "tool/qor_runner.h"

namespace {

constexpr int kBlock = C_FILE::COMPRESS_BLOCK_SIZE;
constexpr int kMagicSize = 16;

// A 32-bit little-endian length of a block record.
long long RecordField(const std::string& file, long long offset) {
  long long value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(file[offset + i]);
  return value;
}

// A path as the tool names it in messages: with the system's separators.
std::string NativeName(const std::string& path) { return std::filesystem::path(path).make_preferred().string(); }

class CompressedCommandsTest : public QorTest {
 protected:
  // Packs data written to `name` into `name`.qz and returns the packed path.
  std::string Packed(const std::string& name, const std::string& data) {
    EXPECT_EQ(Outcome(Run({"pack", Write(name, data), dir.File(name + ".qz")})), kSuccess);
    return dir.File(name + ".qz");
  }
};

TEST_F(CompressedCommandsTest, PackAndUnpackGiveBackTheOriginalBytes) {
  for (const std::size_t size : {0, 1, kBlock - 1, kBlock, kBlock + 1, 3 * kBlock + 5, 1500000}) {
    SCOPED_TRACE(size);
    const std::string data = SampleData(size, static_cast<unsigned int>(size));
    const std::string packed = Packed("data", data);
    const std::string bytes = ReadWholeFile(packed);
    EXPECT_EQ(bytes.compare(0, kMagicSize, C_FILE::COMPRESS_MAGIC), 0);
    Output({"unpack", "--force", packed, dir.File("back")});
    EXPECT_EQ(ReadWholeFile(dir.File("back")), data);
    // Standard input and output in place of files.
    EXPECT_EQ(Run({"pack", "-", "-"}, dir.File("data"), dir.File("piped.qz")).status, 0);
    EXPECT_EQ(ReadWholeFile(dir.File("piped.qz")), bytes);
    EXPECT_EQ(Output({"unpack", "-", "-"}, packed), data);
    std::filesystem::remove(packed);
  }
}

TEST_F(CompressedCommandsTest, PackMakesTheSameFileWithAnyNumberOfThreads) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{kBlock}, 17 * std::size_t{kBlock} + 3}) {
    SCOPED_TRACE(size);
    const std::string data = SampleData(size, 21);
    const std::string in = Write("data", data);
    EXPECT_EQ(Outcome(Run({"pack", "-f", "-j", "1", in, dir.File("one.qz")})), kSuccess);
    const std::string one = ReadWholeFile(dir.File("one.qz"));
    for (const char* jobs : {"2", "3", "8"}) {
      EXPECT_EQ(Outcome(Run({"pack", "--force", "--jobs", jobs, in, dir.File("many.qz")})), kSuccess);
      EXPECT_TRUE(ReadWholeFile(dir.File("many.qz")) == one) << jobs << " threads";
    }
    // The default (a thread per processor) and standard output alike.
    EXPECT_EQ(Run({"pack", "-", "-"}, in, dir.File("piped.qz")).status, 0);
    EXPECT_TRUE(ReadWholeFile(dir.File("piped.qz")) == one);
    EXPECT_EQ(Output({"unpack", "--force", dir.File("many.qz"), dir.File("back")}), "");
    EXPECT_TRUE(ReadWholeFile(dir.File("back")) == data);
  }
  EXPECT_EQ(Run({"pack", "-j", "0", dir.File("data"), dir.File("none.qz")}).status, 2);
}

TEST_F(CompressedCommandsTest, CatAtRandomOffsetsGivesTheOriginalBytes) {
  const std::string data = SampleData(5 * kBlock + 777, 14);
  const std::string packed = Packed("data", data);
  std::mt19937 random(2026);
  for (int i = 0; i < 30; ++i) {
    const std::size_t offset = random() % (data.size() + 100);
    const std::size_t length = random() % (2 * kBlock);
    SCOPED_TRACE(std::to_string(offset) + "+" + std::to_string(length));
    EXPECT_EQ(Output({"cat", packed, "--offset", std::to_string(offset), "--length", std::to_string(length)}),
              offset < data.size() ? data.substr(offset, length) : "");
  }
  // Across a block boundary, and the rest of the file without a length.
  EXPECT_EQ(Output({"cat", packed, "--offset", std::to_string(kBlock - 3), "--length", "6"}),
            data.substr(kBlock - 3, 6));
  EXPECT_EQ(Output({"cat", packed, "--offset", std::to_string(4 * kBlock)}), data.substr(4 * kBlock));
  EXPECT_EQ(Output({"cat", packed}), data);
  // A file with no blocks prints nothing at any offset.
  EXPECT_EQ(Output({"cat", Packed("empty", ""), "--offset", "10"}), "");
}

TEST_F(CompressedCommandsTest, CheckNamesTheDamageAndUnpackLeavesNothingBehind) {
  const std::string data = SampleData(3 * kBlock, 3);
  const std::string packed = Packed("data", data);
  EXPECT_EQ(Output({"check", packed}), packed + ": sound, 3 blocks, " + std::to_string(data.size()) + " bytes\n");

  const std::string original = ReadWholeFile(packed);
  const long long second = kMagicSize + 8 + RecordField(original, kMagicSize + 4);
  const std::string place = " (block 1 at byte " + std::to_string(second) + ")";
  // Each row: where the damage goes, the bytes put there, and the message.
  const std::tuple<long long, std::string, std::string> cases[] = {
      // Altered data: the library still reads the block (deliberately lenient);
      // its checksum gives it away.
      {second + 500, "damaged!",
       "qor: Error while decompressing: " + packed + place + ": the data do not match their Adler-32 checksum\n"},
      {second, std::string("\xff\xff\xff\x7f", 4),
       "qor: Error while decompressing: " + packed + place + ": impossible lengths 2147483647 and " +
           std::to_string(RecordField(original, second + 4)) + " in the record\n"},
      {0, "QORCOMPRESS_V2.0",
       "qor: Error while decompressing: " + packed +
           " is not a compressed file (it does not begin with QORCOMPRESS_V1.0)\n"},
  };
  for (const auto& [offset, bytes, message] : cases) {
    WriteWholeFile(packed, std::string(original).replace(static_cast<std::size_t>(offset), bytes.size(), bytes));
    EXPECT_EQ(Outcome(Run({"check", packed})), Failure(message));
    EXPECT_EQ(Outcome(Run({"unpack", packed, dir.File("out")})), Failure(message));
    EXPECT_EQ(DirectoryNames(dir), (std::vector<std::string>{"data", "data.qz"}));
  }
  // A file cut inside its last record.
  WriteWholeFile(packed, original.substr(0, original.size() - 10));
  const QorResult cut = Run({"check", packed});
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(cut.err.find("qor: End of file reached: " + packed + " (block 2 at byte "), std::string::npos) << cut.err;
  EXPECT_NE(cut.err.find("): the record is cut short\n"), std::string::npos) << cut.err;
  // Several files: each is reported, and one failure fails the whole check.
  const std::string good = Packed("good", "some data");
  const QorResult both = Run({"check", good, packed});
  EXPECT_EQ(both.status, 1);
  EXPECT_EQ(both.out, good + ": sound, 1 blocks, 9 bytes\n");
}

TEST_F(CompressedCommandsTest, InfoShowsBlocksSizesRatioAndFlushPoints) {
  // The library's writer ends a block at every flush: blocks of 10, 20 and 30 bytes.
  const std::string path = dir.File("flushed.qz");
  {
    C_STRING libraryPath;
    libraryPath.FromUTF8(path.c_str());
    C_FILE file(libraryPath, C_FILE::WRITE, C_FILE::COMPRESSED);
    file.Write(10, "0123456789");
    file.Flush();
    file.Write(20, "abcdefghijklmnopqrst");
    file.Flush();
    file.Write(30, "ABCDEFGHIJKLMNOPQRSTUVWXYZ+-*/");
  }
  ASSERT_FALSE(C_ERROR::Is());
  const std::string info = Output({"info", path, "--blocks"});
  // Full blocks are no flush points; a ratio below one shows the saving.
  const std::string plain = Output({"info", Packed("text", std::string(3 * kBlock, 'x'))});
  const std::pair<const std::string*, std::string> lines[] = {
      {&info, "compressed size:   " + std::to_string(std::filesystem::file_size(path)) + " bytes\n"},
      {&info, "uncompressed size: 60 bytes\n"},
      {&info, "blocks:            3 (of at most 131072 bytes)\n"},
      {&info, "flush points:      2 at 10, 30\n"},
      {&info, "       0             16              0       10"},
      {&plain, "blocks:            3 "},
      {&plain, "flush points:      0\n"},
      {&plain, "ratio:             0.1 % of the data"}};
  for (const auto& [out, line] : lines) EXPECT_NE(out->find(line), std::string::npos) << *out;
}

TEST_F(CompressedCommandsTest, OutputsAppearWholeOrNotAtAll) {
  const std::string data = SampleData(2 * kBlock, 7);
  const std::string packed = Packed("data", data);
  // An existing target is kept unless --force is given.
  WriteWholeFile(dir.File("out"), "keep me");
  EXPECT_EQ(Outcome(Run({"unpack", packed, dir.File("out")})),
            Failure("qor: Unable to create file: " + dir.File("out") + " already exists (--force replaces it)\n"));
  EXPECT_EQ(ReadWholeFile(dir.File("out")), "keep me");
  Output({"unpack", "--force", packed, dir.File("out")});
  EXPECT_EQ(ReadWholeFile(dir.File("out")), data);
  // No room on the device: the failure is the library's, and no file is left.
  // (Windows has no always-full device; Wine has Z:\dev\full.)
  if (!QORC_ON_WINDOWS(!RunningUnderWine())) {
    EXPECT_EQ(Outcome(Run({"unpack", packed, "-"}, kNullDevice, kFullDevice)),
              Failure("qor: Unable to write file: standard output\n"));
  }
  // Failures name the file the user gave, never the temporary one beside it.
  EXPECT_EQ(Outcome(Run({"pack", dir.File("data"), dir.File("no/such/dir/data.qz")})),
            Failure("qor: Unable to create file: " + NativeName(dir.File("no/such/dir/data.qz")) + "\n"));
  EXPECT_EQ(Outcome(Run({"shield", dir.File("data"), dir.File("no/such/dir/data.txt")})),
            Failure("qor: Unable to create file: " + NativeName(dir.File("no/such/dir/data.txt")) + "\n"));
  EXPECT_EQ(DirectoryNames(dir), (std::vector<std::string>{"data", "data.qz", "out"}));
}

TEST_F(CompressedCommandsTest, AnInterruptedPackLeavesNoFileBehind) {
#ifdef _WIN32
  GTEST_SKIP() << "Interrupting qor by a signal (SIGTERM) while it reads a pipe is POSIX's";
#else
  // Standard input is a pipe that stays open: pack waits in the middle of its work.
  int pipeEnds[2];
  ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
  const pid_t pid = StartQor({"pack", "-", dir.File("out.qz")}, "/dev/fd/" + std::to_string(pipeEnds[0]),
                             dir.File("stdout"), dir.File("stderr"));
  close(pipeEnds[0]);
  const std::string chunk = SampleData(kBlock, 1);
  ASSERT_EQ(write(pipeEnds[1], chunk.data(), chunk.size()), static_cast<ssize_t>(chunk.size()));
  // Waits for the staged file to appear beside the target.
  for (int i = 0; i < 500 && DirectoryNames(dir).size() < 3; ++i) usleep(10000);
  EXPECT_EQ(DirectoryNames(dir).size(), 3u);
  kill(pid, SIGTERM);
  EXPECT_EQ(WaitForExit(pid), -1);
  close(pipeEnds[1]);
  EXPECT_EQ(DirectoryNames(dir), (std::vector<std::string>{"stderr", "stdout"}));
#endif
}

}  // namespace
