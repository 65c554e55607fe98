// Shielded data: the string form, and blocks in files in every route.
#include <qorc/shielding.h>

#include <cstdlib>

#include "file/file_test_util.h"
#include "support/os_support.h"

using Shielding = FileTest;

namespace {

std::string Shield(const std::string& bytes) {
  char* text = nullptr;
  int length = -1;
  CastrShieldData(bytes.data(), static_cast<int>(bytes.size()), &text, &length);
  std::string out = text != nullptr ? std::string(text, static_cast<std::size_t>(length)) : "<null>";
  std::free(text);
  return out;
}

std::string Unshield(const std::string& text, int length = -1) {
  char* data = nullptr;
  int n = -1;
  CastrUnshieldData(text.c_str(), length, reinterpret_cast<void**>(&data), &n);
  if (data == nullptr) return "<null>";
  std::string out(data, static_cast<std::size_t>(n));
  EXPECT_EQ(data[n], '\0');  // a zero byte follows the data
  std::free(data);
  return out;
}

}  // namespace

TEST_F(Shielding, StringFormAndBadText) {
  for (const auto& [bytes, text] : {std::pair{"\1\2\3", "018k0"}, std::pair{"\xFF", "1z300"}}) {
    EXPECT_EQ(Shield(bytes), text);
    EXPECT_EQ(Unshield(text), bytes);
  }
  EXPECT_EQ(Shield("") + Unshield("", 0), "<null><null>");
  std::string bytes;
  for (int n = 1; n < 300; ++n) {
    bytes += static_cast<char>(n * 37 + 11);
    const std::string text = Shield(bytes);
    EXPECT_EQ(text.size(), 1u + 4u * ((bytes.size() + 2) / 3));
    EXPECT_EQ(Unshield(text), bytes) << n;
    EXPECT_EQ(Unshield(text, static_cast<int>(text.size())), bytes) << n;
  }

  // A first character that cannot tell the byte count is refused.
  void* data = reinterpret_cast<void*>(1);
  int n = 5;
  CastrUnshieldData("5abcd", -1, &data, &n);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(TakeError(), &CerrFileContainsInvalidCode);
  // Only the count character: nothing to decode, whatever it says.
  EXPECT_EQ(Unshield("2"), "");
  // Decoding stops at a character outside the alphabet; later groups stay zero.
  EXPECT_EQ(Unshield("018k00!!!"), std::string("\1\2\3\0\0\0", 6));
  EXPECT_EQ(TakeError(), nullptr);
}

TEST_F(Shielding, FileRoundTripsLayoutAndDamagedBlocks) {
  const std::string data = RandomBytes(5000);
  for (const auto& [direct, type] : {std::pair{0, C_FILE::BINARY}, std::pair{0, C_FILE::COMPRESSED},
                                     std::pair{C_FILE::DIRECT, C_FILE::COMPRESSED}}) {
    {
      C_FILE file(LibraryPath(path), C_FILE::WRITE | direct, type);
      file.Write(7, "header\n");
      file.WriteShielded(static_cast<int>(data.size()), const_cast<char*>(data.data()), nullptr, nullptr);
      file.WriteShielded(2, const_cast<char*>("ok"), nullptr, nullptr);
    }
    C_FILE file(LibraryPath(path), C_FILE::READ | direct, type);
    std::string header(7, '\0'), out(data.size(), '\0'), ok(2, '\0');
    file.Read(7, header.data());
    EXPECT_EQ(header, "header\n");
    int decoded = 0, read = 0;
    file.ReadShielded(static_cast<int>(data.size()), out.data(), &decoded, &read);
    EXPECT_EQ(TakeError(), nullptr);
    EXPECT_EQ(decoded, static_cast<int>(data.size()));
    EXPECT_EQ(read, 4 * 1667 + 84);  // groups and a line feed after every 20
    EXPECT_TRUE(out == data);
    file.ReadShielded(2, ok.data(), nullptr, nullptr);
    EXPECT_EQ(ok, "ok");
    file.ReadShielded(2, ok.data(), &decoded, &read);
    EXPECT_EQ(read, 0);
    EXPECT_EQ(TakeError(), &CerrFileEndReached);
  }

  // The layout of a block, and damaged blocks.
  const C_STRING expanded = LibraryPath(path, true);
  const std::string small = RandomBytes(60) + "\1";
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::BINARY);
    int consumed = -1, written = -1;
    file.WriteShielded(0, nullptr, &consumed, &written);
    EXPECT_EQ(consumed + written, 0);
    file.WriteShielded(61, const_cast<char*>(small.data()), &consumed, &written);
    EXPECT_EQ(consumed, 61);
    EXPECT_EQ(written, 86);
  }
  // 20 groups and a line feed, then the last group (the byte 1, padded with
  // '0') and its line feed.
  const std::string good = ReadBytes(path);
  EXPECT_EQ(good.find('\n'), 80u);
  EXPECT_EQ(good.substr(81), "1000\n");
  std::string noFeed = good, badCharacter = good;
  noFeed[80] = 'x';
  badCharacter[5] = '#';
  const std::pair<std::string, int> cases[] = {{noFeed, 60}, {badCharacter, 3}, {good.substr(0, 50), 36}};
  for (const auto& [bytes, stored] : cases) {
    WriteBytes(path, bytes);
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::BINARY);
    std::string out(61, '\0');
    int decoded = 0, read = 0;
    file.ReadShielded(61, out.data(), &decoded, &read);
    EXPECT_EQ(read, static_cast<int>(bytes.size()));
    EXPECT_EQ(out.substr(0, decoded), small.substr(0, stored));
    EXPECT_TRUE(C_ERROR::GetPendingExtra() == expanded);
    EXPECT_EQ(TakeError(), bytes.size() < 86 ? &CerrFileEndReached : &CerrFileContainsInvalidCode);
  }
  if (QORC_ON_WINDOWS(!RunningUnderWine())) GTEST_SKIP() << "Windows has no always-full device (Wine has Z:\\dev\\full)";
  C_FILE full(C_STRING(kFullDeviceUnits), C_FILE::WRITE, C_FILE::BINARY);
  const std::string big = RandomBytes(30000);
  int consumed = -1, written = -1;
  full.WriteShielded(static_cast<int>(big.size()), const_cast<char*>(big.data()), &consumed, &written);
  EXPECT_EQ(TakeError(), &CerrFileNotEnoughSpace);
  EXPECT_LT(written, 40500);
  EXPECT_EQ(consumed, (written * 3 + 3) / 4);
}
