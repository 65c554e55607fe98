// qor shield, unshield, crc, adler and rsa, run as a program on real files.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cstdio>

#include "tool/qor_runner.h"

namespace {

class DataCommandsTest : public testing::Test {
 protected:
  TempDir dir;
};

std::string Hex(unsigned long value) {
  char text[16];
  std::snprintf(text, sizeof text, "%08lx", value);
  return text;
}

TEST_F(DataCommandsTest, ShieldAndUnshieldGiveBackTheOriginalBytes) {
  for (const std::size_t size : {0, 1, 59, 60, 61, 122880, 300001}) {
    SCOPED_TRACE(size);
    const std::string data = SampleData(size, static_cast<unsigned int>(size) + 1);
    WriteWholeFile(dir.File("data"), data);
    const QorResult shield = RunQor(dir, {"shield", "--force", dir.File("data"), dir.File("data.txt")});
    ASSERT_EQ(shield.status, 0) << shield.err;
    const std::string text = ReadWholeFile(dir.File("data.txt"));
    // A header with the byte count, then lines of 80 printable characters.
    const std::string header = "QORSHIELD " + std::to_string(size) + "\n";
    ASSERT_EQ(text.compare(0, header.size(), header), 0);
    if (size >= 60) {
      EXPECT_EQ(text.find('\n', header.size()), header.size() + 80);
    }
    for (const char c : text.substr(header.size())) EXPECT_TRUE(c == '\n' || (c > ' ' && c < 127));
    const QorResult unshield = RunQor(dir, {"unshield", "--force", dir.File("data.txt"), dir.File("back")});
    EXPECT_EQ(unshield.status, 0) << unshield.err;
    EXPECT_EQ(ReadWholeFile(dir.File("back")), data);
    // Through standard input and output.
    const QorResult piped = RunQor(dir, {"shield", "-", "-"}, dir.File("data"));
    EXPECT_EQ(piped.out, text);
    EXPECT_EQ(RunQor(dir, {"unshield", "-", "-"}, dir.File("data.txt")).out, data);
  }
  // The library's own string form of the same bytes uses the same alphabet.
  WriteWholeFile(dir.File("three"), std::string("\x01\x02\x03", 3));
  EXPECT_EQ(RunQor(dir, {"shield", dir.File("three"), "-"}).out, "QORSHIELD 3\n18k0\n");
}

TEST_F(DataCommandsTest, UnshieldRefusesWhatIsNotShieldedData) {
  WriteWholeFile(dir.File("plain"), "hello\n");
  const QorResult plain = RunQor(dir, {"unshield", dir.File("plain"), dir.File("out")});
  EXPECT_EQ(plain.status, 1);
  EXPECT_EQ(plain.err, "qor: File contains invalid encoding: " + dir.File("plain") +
                           " is not shielded data (it does not begin with a \"QORSHIELD <byte count>\" line)\n");
  WriteWholeFile(dir.File("bad"), "QORSHIELD 6\n18k0!!!!\n");
  const QorResult bad = RunQor(dir, {"unshield", dir.File("bad"), dir.File("out")});
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.err.rfind("qor: File contains invalid encoding: " + dir.File("bad") + " (after 3 bytes)", 0), 0u)
      << bad.err;
  WriteWholeFile(dir.File("short"), "QORSHIELD 6\n18k0\n");
  const QorResult cut = RunQor(dir, {"unshield", dir.File("short"), dir.File("out")});
  EXPECT_EQ(cut.status, 1);
  EXPECT_EQ(cut.err.rfind("qor: End of file reached: " + dir.File("short"), 0), 0u) << cut.err;
  EXPECT_EQ(DirectoryNames(dir), (std::vector<std::string>{"bad", "plain", "short"}));
}

TEST_F(DataCommandsTest, ChecksumsAgreeWithZlibAndCksum) {
  std::vector<std::string> files;
  std::vector<std::string> crcs;
  std::string expectedCrc;
  std::string expectedAdler;
  for (const std::size_t size : {0, 1, 1000, 5000000}) {
    const std::string data = SampleData(size, 99);
    const std::string path = dir.File("file" + std::to_string(size));
    WriteWholeFile(path, data);
    files.push_back(path);
    const auto* bytes = reinterpret_cast<const Bytef*>(data.data());
    crcs.push_back(Hex(crc32(0, bytes, static_cast<uInt>(size))));
    expectedCrc += crcs.back() + "  " + path + "\n";
    expectedAdler += Hex(adler32(1, bytes, static_cast<uInt>(size))) + "  " + path + "\n";
  }
  std::vector<std::string> crcArgs{"crc"};
  crcArgs.insert(crcArgs.end(), files.begin(), files.end());
  std::vector<std::string> adlerArgs{"adler"};
  adlerArgs.insert(adlerArgs.end(), files.begin(), files.end());
  const QorResult crc = RunQor(dir, crcArgs);
  EXPECT_EQ(crc.status, 0) << crc.err;
  EXPECT_EQ(crc.out, expectedCrc);
  EXPECT_EQ(RunQor(dir, adlerArgs).out, expectedAdler);
  // Standard input, by default and as "-".
  EXPECT_EQ(RunQor(dir, {"crc"}, files[2]).out, crcs[2] + "  -\n");
  EXPECT_EQ(RunQor(dir, {"crc", "-"}, files[3]).out, crcs[3] + "  -\n");
  // The checksum of coreutils, where it knows CRC-32 (it prints decimal).
  const std::string cksum = dir.File("cksum.out");
  const std::string command = "cksum -a crc32b " + files[3] + " >" + cksum + " 2>/dev/null";
  if (std::system(command.c_str()) == 0) {
    EXPECT_EQ(Hex(std::stoul(ReadWholeFile(cksum))), crcs[3]);
  }
  // A missing file is reported, the others still printed.
  const QorResult missing = RunQor(dir, {"crc", dir.File("none"), files[1]});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "qor: Unable to open file: " + dir.File("none") + "\n");
  EXPECT_EQ(missing.out, crcs[1] + "  " + files[1] + "\n");
}

TEST_F(DataCommandsTest, RsaKeysEncryptAndDecrypt) {
  const std::string prefix = dir.File("key");
  const QorResult keygen = RunQor(dir, {"rsa", "keygen", "512", "-o", prefix, "--seed", "42"});
  ASSERT_EQ(keygen.status, 0) << keygen.err;
  EXPECT_EQ(keygen.out, prefix + ".pub: public key, 512 bits\n" + prefix + ".key: private key, 512 bits\n");
  const std::string publicKey = ReadWholeFile(prefix + ".pub");
  ASSERT_EQ(publicKey.size(), 128u);
  EXPECT_NE(publicKey[0] & 0x80, 0);  // the modulus has all its bits
  struct stat status;
  ASSERT_EQ(stat((prefix + ".key").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  // A seed makes the pair again; existing keys are replaced only with --force.
  EXPECT_EQ(RunQor(dir, {"rsa", "keygen", "512", "-o", prefix, "--seed", "42"}).status, 1);
  ASSERT_EQ(RunQor(dir, {"rsa", "keygen", "512", "-o", dir.File("again"), "--seed", "42"}).status, 0);
  EXPECT_EQ(ReadWholeFile(dir.File("again.pub")), publicKey);

  for (const std::size_t size : {0, 1, 63, 64, 1000}) {
    SCOPED_TRACE(size);
    const std::string data = SampleData(size, 5);
    WriteWholeFile(dir.File("plain"), data);
    ASSERT_EQ(RunQor(dir, {"rsa", "encrypt", "-f", prefix + ".pub", dir.File("plain"), dir.File("secret")}).status, 0);
    const std::string secret = ReadWholeFile(dir.File("secret"));
    // Header, then 64-byte blocks of 511 data bits each.
    EXPECT_EQ(secret.size(), 16 + 64 * ((size * 8 + 510) / 511));
    EXPECT_EQ(secret.compare(0, 8, "QORRSA01"), 0);
    const QorResult decrypt = RunQor(dir, {"rsa", "decrypt", prefix + ".key", dir.File("secret"), "-"});
    EXPECT_EQ(decrypt.status, 0) << decrypt.err;
    EXPECT_EQ(decrypt.out, data);
  }
  // Bare blocks: the padding of the last block comes back too.
  WriteWholeFile(dir.File("plain"), "ten bytes!");
  ASSERT_EQ(RunQor(dir, {"rsa", "encrypt", "--raw", prefix + ".pub", dir.File("plain"), dir.File("raw")}).status, 0);
  EXPECT_EQ(std::filesystem::file_size(dir.File("raw")), 64u);
  const QorResult raw = RunQor(dir, {"rsa", "decrypt", "--raw", prefix + ".key", dir.File("raw"), "-"});
  EXPECT_EQ(raw.out.size(), 64u);
  EXPECT_EQ(raw.out.substr(0, 10), "ten bytes!");
  // What is not a key, or not a cipher of this key, is refused.
  const QorResult notKey = RunQor(dir, {"rsa", "encrypt", dir.File("plain"), dir.File("plain"), "-"});
  EXPECT_EQ(notKey.status, 1);
  EXPECT_EQ(notKey.err, "qor: Invalid value: " + dir.File("plain") + " is not a key made by qor rsa keygen\n");
  const QorResult notCipher = RunQor(dir, {"rsa", "decrypt", prefix + ".key", dir.File("plain"), "-"});
  EXPECT_EQ(notCipher.err, "qor: File contains invalid encoding: " + dir.File("plain") +
                               " was not made by qor rsa encrypt (--raw reads bare blocks)\n");
  const QorResult badSize = RunQor(dir, {"rsa", "keygen", "100", "-o", dir.File("odd")});
  EXPECT_EQ(badSize.status, 1);
  EXPECT_EQ(badSize.err, "qor: Invalid value: 100 bits: key sizes are multiples of 8\n");
}

}  // namespace
