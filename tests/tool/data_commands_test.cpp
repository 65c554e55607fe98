// qor shield, unshield, crc, adler and rsa, run as a program on real files.
#include <qorc/qorc.h>
#include <zlib.h>

#include "support/os_support.h"
#include "tool/qor_runner.h"
#ifdef _WIN32
#include <psapi.h>
#else
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

using DataCommandsTest = QorTest;

std::string Hex(unsigned long value) {
  char text[16];
  std::snprintf(text, sizeof text, "%08lx", value);
  return text;
}

TEST_F(DataCommandsTest, ShieldAndUnshieldGiveBackTheOriginalBytes) {
  for (const std::size_t size : {0, 1, 59, 60, 61, 122880, 300001}) {
    SCOPED_TRACE(size);
    const std::string data = SampleData(size, static_cast<unsigned int>(size) + 1);
    Output({"shield", "--force", Write("data", data), dir.File("data.txt")});
    const std::string text = ReadWholeFile(dir.File("data.txt"));
    // A header with the byte count, then lines of 80 printable characters.
    const std::string header = "QORSHIELD " + std::to_string(size) + "\n";
    ASSERT_EQ(text.compare(0, header.size(), header), 0);
    if (size >= 60) {
      EXPECT_EQ(text.find('\n', header.size()), header.size() + 80);
    }
    for (const char c : text.substr(header.size())) EXPECT_TRUE(c == '\n' || (c > ' ' && c < 127));
    Output({"unshield", "--force", dir.File("data.txt"), dir.File("back")});
    EXPECT_EQ(ReadWholeFile(dir.File("back")), data);
    // Through standard input and output.
    EXPECT_EQ(Output({"shield", "-", "-"}, dir.File("data")), text);
    EXPECT_EQ(Output({"unshield", "-", "-"}, dir.File("data.txt")), data);
  }
  // The same alphabet as the library's own string form of the bytes.
  EXPECT_EQ(Output({"shield", Write("three", "\x01\x02\x03"), "-"}), "QORSHIELD 3\n18k0\n");
}

TEST_F(DataCommandsTest, UnshieldRefusesWhatIsNotShieldedDataAndLeavesNoOutput) {
  // Each row: the input, and the start of the one-line message ("#" stands for the input's path).
  const std::pair<std::string, std::string> cases[] = {
      {"hello\n",
       "File contains invalid encoding: # is not shielded data (it does not begin with a \"QORSHIELD "
       "<byte count>\" line)\n"},
      {"QORSHIELD 6\n18k0!!!!\n", "File contains invalid encoding: # (after 3 bytes)"},
      {"QORSHIELD 6\n18k0\n", "End of file reached: #"}};
  for (const auto& [content, message] : cases) {
    const std::string input = Write("in", content);
    const QorResult result = Run({"unshield", input, dir.File("out")});
    EXPECT_EQ(result.status, 1);
    const std::string expected =
        "qor: " + message.substr(0, message.find('#')) + input + message.substr(message.find('#') + 1);
    EXPECT_EQ(result.err.rfind(expected, 0), 0u) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(DirectoryNames(dir), std::vector<std::string>{"in"});
  }
}

TEST_F(DataCommandsTest, ChecksumsAgreeWithZlibAndCksum) {
  std::vector<std::string> crcArgs{"crc"}, adlerArgs{"adler"}, crcs;
  std::string expectedCrc, expectedAdler;
  for (const std::size_t size : {0, 1, 1000, 5000000}) {
    const std::string data = SampleData(size, 99);
    const std::string path = Write("file" + std::to_string(size), data);
    crcArgs.push_back(path);
    adlerArgs.push_back(path);
    const auto* bytes = reinterpret_cast<const Bytef*>(data.data());
    crcs.push_back(Hex(crc32(0, bytes, static_cast<uInt>(size))));
    expectedCrc += crcs.back() + "  " + path + "\n";
    expectedAdler += Hex(adler32(1, bytes, static_cast<uInt>(size))) + "  " + path + "\n";
  }
  EXPECT_EQ(Output(crcArgs), expectedCrc);
  EXPECT_EQ(Output(adlerArgs), expectedAdler);
  // Standard input, by default and as "-".
  EXPECT_EQ(Output({"crc"}, crcArgs[3]), crcs[2] + "  -\n");
  EXPECT_EQ(Output({"crc", "-"}, crcArgs[4]), crcs[3] + "  -\n");
  // The checksum of coreutils, where it knows CRC-32 (it prints decimal).
  const std::string cksum = dir.File("cksum.out");
  if (std::system(("cksum -a crc32b " + crcArgs[4] + " >" + cksum + " 2>/dev/null").c_str()) == 0) {
    EXPECT_EQ(Hex(std::stoul(ReadWholeFile(cksum))), crcs[3]);
  }
  // A missing file is reported, the others still printed.
  const QorResult missing = Run({"crc", dir.File("none"), crcArgs[2]});
  EXPECT_EQ(Outcome(missing), Failure("qor: Unable to open file: " + dir.File("none") + "\n"));
  EXPECT_EQ(missing.out, crcs[1] + "  " + crcArgs[2] + "\n");
}

// The peak resident memory of a qor run, in KiB; -1 when it did not succeed.
long PeakMemoryOfRun(const std::vector<std::string>& args, const std::string& output) {
#ifdef _WIN32
  const HANDLE process = StartQor(args, kNullDevice, output, kNullDevice);
  if (process == nullptr) return -1;
  PROCESS_MEMORY_COUNTERS counters = {};
  counters.cb = sizeof counters;
  DWORD code = 1;
  const bool measured = WaitForSingleObject(process, INFINITE) == WAIT_OBJECT_0 && GetExitCodeProcess(process, &code) &&
                        K32GetProcessMemoryInfo(process, &counters, sizeof counters);
  CloseHandle(process);
  return measured && code == 0 ? static_cast<long>(counters.PeakWorkingSetSize / 1024) : -1;
#else
  const pid_t pid = StartQor(args, kNullDevice, output, kNullDevice);
  int status = 0;
  struct rusage usage {};
  if (pid < 0 || wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return usage.ru_maxrss;
#endif
}

// zlib's CRC-32 of bytes whose CRC-32 is `crc` followed by `gibibytes` GiB
// of zero bytes, made without reading them: the sums of the parts are
// combined, a GiB at a time since zlib's lengths have 32 bits on Windows.
unsigned long CrcFollowedByZeros(unsigned long crc, int gibibytes) {
  constexpr long kMiB = 1 << 20;
  const std::string zeros(kMiB, '\0');
  unsigned long ofGiB = crc32(0, reinterpret_cast<const Bytef*>(zeros.data()), static_cast<uInt>(kMiB));
  for (long length = kMiB; length < 1024 * kMiB; length *= 2) ofGiB = crc32_combine(ofGiB, ofGiB, length);
  for (int i = 0; i < gibibytes; ++i) crc = crc32_combine(crc, ofGiB, 1024 * kMiB);
  return crc;
}

TEST_F(DataCommandsTest, ChecksumsStreamFilesOverFourGibibytesInLittleMemory) {
  // A sparse file of 4 GiB and 2 MiB: data at both ends, a hole between that
  // reads fast as zero bytes. zlib gives the expected sums without reading
  // the hole: the sums of the parts are combined.
  constexpr long long kMiB = 1 << 20, kHole = 4LL << 30;
  const std::string head = SampleData(kMiB, 5), tail = SampleData(kMiB, 6);
  // tmpfs reads a hole without a page of cache for it: 4 GiB take a second or
  // two there, where a disk's file system fills its cache with zeros first.
  std::error_code noShm;
  // (Under Wine the Linux host's /dev/shm is reached through its Z: drive.)
  const TempDir holes(std::filesystem::is_directory("/dev/shm", noShm) ? std::filesystem::absolute("/dev/shm")
                                                                       : std::filesystem::temp_directory_path());
  const std::string big = holes.File("big");
  {
    std::ofstream out(big, std::ios::binary);
    out.write(head.data(), kMiB);
    out.seekp(kMiB + kHole);
    out.write(tail.data(), kMiB);
    ASSERT_TRUE(out.good());
  }
  ASSERT_EQ(std::filesystem::file_size(big), static_cast<std::uintmax_t>(2 * kMiB + kHole));
  const auto crcOf = [](const std::string& bytes) {
    return crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size()));
  };
  const unsigned long crc = crc32_combine(CrcFollowedByZeros(crcOf(head), static_cast<int>(kHole >> 30)), crcOf(tail), kMiB);
  const std::string out = dir.File("sums");
  const long peak = PeakMemoryOfRun({"crc", big}, out);
  EXPECT_EQ(ReadWholeFile(out), Hex(crc) + "  " + big + "\n");
  // Reading 4 GiB takes no more memory than reading a small file.
  const std::string small = Write("small", head + tail);
  const long smallPeak = PeakMemoryOfRun({"adler", small}, out);
  EXPECT_EQ(ReadWholeFile(out),
            Hex(adler32(1, reinterpret_cast<const Bytef*>((head + tail).data()), static_cast<uInt>(2 * kMiB))) + "  " +
                small + "\n");
  if ((peak == 0 || smallPeak == 0) && RunningUnderWine()) {
    GTEST_SKIP() << "Wine difference: GetProcessMemoryInfo often reports a peak working set of zero for a "
                    "program that has ended, so the memory of the runs cannot be compared";
  }
  ASSERT_GT(smallPeak, 0);
  EXPECT_GT(peak, 0);
  EXPECT_LT(peak, smallPeak + 8 * 1024) << "KiB";
}

TEST_F(DataCommandsTest, RsaKeysEncryptAndDecrypt) {
  const std::string prefix = dir.File("key");
  const std::vector<std::string> keygen{"rsa", "keygen", "512", "-o", prefix, "--seed", "42"};
  EXPECT_EQ(Output(keygen), prefix + ".pub: public key, 512 bits\n" + prefix + ".key: private key, 512 bits\n");
  const std::string publicKey = ReadWholeFile(prefix + ".pub");
  ASSERT_EQ(publicKey.size(), 128u);
  EXPECT_NE(publicKey[0] & 0x80, 0);  // the modulus has all its bits
#ifndef _WIN32
  // The private key is for its owner alone (Windows files have no such bits).
  struct stat status;
  ASSERT_EQ(stat((prefix + ".key").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
#endif
  // A seed makes the pair again; existing keys are replaced only with --force.
  EXPECT_EQ(Run(keygen).status, 1);
  Output({"rsa", "keygen", "512", "-o", dir.File("again"), "--seed", "42"});
  EXPECT_EQ(ReadWholeFile(dir.File("again.pub")), publicKey);
  for (const std::size_t size : {0, 1, 63, 64, 1000}) {
    SCOPED_TRACE(size);
    const std::string data = SampleData(size, 5);
    Output({"rsa", "encrypt", "-f", prefix + ".pub", Write("plain", data), dir.File("secret")});
    const std::string secret = ReadWholeFile(dir.File("secret"));
    // Header, then 64-byte blocks of 511 data bits each.
    EXPECT_EQ(secret.size(), 16 + 64 * ((size * 8 + 510) / 511));
    EXPECT_EQ(secret.compare(0, 8, "QORRSA01"), 0);
    EXPECT_EQ(Output({"rsa", "decrypt", prefix + ".key", dir.File("secret"), "-"}), data);
  }
  // Bare blocks: the padding of the last block comes back too.
  const std::string plain = Write("plain", "ten bytes!");
  Output({"rsa", "encrypt", "--raw", prefix + ".pub", plain, dir.File("raw")});
  EXPECT_EQ(std::filesystem::file_size(dir.File("raw")), 64u);
  const std::string raw = Output({"rsa", "decrypt", "--raw", prefix + ".key", dir.File("raw"), "-"});
  EXPECT_EQ(raw.size(), 64u);
  EXPECT_EQ(raw.substr(0, 10), "ten bytes!");
  // What is not a key, or not a cipher of this key, is refused.
  EXPECT_EQ(Outcome(Run({"rsa", "encrypt", plain, plain, "-"})),
            Failure("qor: Invalid value: " + plain + " is not a key made by qor rsa keygen\n"));
  EXPECT_EQ(Outcome(Run({"rsa", "decrypt", prefix + ".key", plain, "-"})),
            Failure("qor: File contains invalid encoding: " + plain +
                    " was not made by qor rsa encrypt (--raw reads bare blocks)\n"));
  EXPECT_EQ(Outcome(Run({"rsa", "keygen", "100", "-o", dir.File("odd")})),
            Failure("qor: Invalid value: 100 bits: key sizes are multiples of 8\n"));
}

}  // namespace
