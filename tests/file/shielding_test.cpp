#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <qorc/shielding.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "file/shielding_code.h"

namespace {

std::string Shield(const std::vector<unsigned char>& bytes) {
  char* text = nullptr;
  int length = -1;
  CastrShieldData(bytes.data(), static_cast<int>(bytes.size()), &text, &length);
  std::string out = text != nullptr ? std::string(text, static_cast<std::size_t>(length)) : "<null>";
  std::free(text);
  return out;
}

std::vector<unsigned char> Unshield(const char* text, int length = -1) {
  void* data = nullptr;
  int n = -1;
  CastrUnshieldData(text, length, &data, &n);
  std::vector<unsigned char> out;
  if (data != nullptr) {
    const unsigned char* bytes = static_cast<unsigned char*>(data);
    out.assign(bytes, bytes + n);
    EXPECT_EQ(bytes[n], 0);  // a zero byte follows the data
  }
  std::free(data);
  return out;
}

}  // namespace

TEST(Shielding, StringFormKnownValues) {
  EXPECT_EQ(Shield({1, 2, 3}), "018k0");
  EXPECT_EQ(Shield({255}), "1z300");
  EXPECT_EQ(Unshield("1z300"), std::vector<unsigned char>{255});
  EXPECT_EQ(Unshield("018k0"), (std::vector<unsigned char>{1, 2, 3}));
  EXPECT_EQ(Shield({}), "<null>");
  EXPECT_EQ(Shield({0, 0}).size(), 5u);  // 1 + 4 * ceil(n / 3)
  EXPECT_TRUE(Unshield("", 0).empty());
}

TEST(Shielding, RoundTripsEveryLengthAndByte) {
  std::vector<unsigned char> bytes;
  for (int n = 0; n < 300; ++n) {
    const std::string text = Shield(bytes);
    if (n > 0) {
      EXPECT_EQ(text.size(), 1u + 4u * ((bytes.size() + 2) / 3));
      EXPECT_EQ(Unshield(text.c_str()), bytes) << n;
      EXPECT_EQ(Unshield(text.c_str(), static_cast<int>(text.size())), bytes) << n;
    }
    bytes.push_back(static_cast<unsigned char>(n * 37 + 11));
  }
}

TEST(Shielding, BadTextIsRefusedOrCutWithoutOverrun) {
  // A first character that cannot tell the byte count is refused.
  void* data = reinterpret_cast<void*>(1);
  int n = 5;
  CastrUnshieldData("5abcd", -1, &data, &n);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrFileContainsInvalidCode);
  C_ERROR::ClearPending();

  // Only the count character: nothing to decode, whatever it says.
  EXPECT_TRUE(Unshield("2").empty());
  // Decoding stops at a character outside the alphabet; later groups stay zero.
  const std::vector<unsigned char> cut = Unshield("0018k0!!!!");
  ASSERT_EQ(cut.size(), 6u);
  EXPECT_EQ(cut[3], 0);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(Shielding, FileFormLinesAndDecoding) {
  using namespace qorc::shield;
  EXPECT_EQ(FileBlockSize(60), 81);  // 80 characters and one line feed
  EXPECT_EQ(FileBlockSize(61), 86);  // 84 characters and two line feeds
  std::vector<unsigned char> data(61);
  for (int i = 0; i < 61; ++i) data[i] = static_cast<unsigned char>(i * 7);
  std::string block(static_cast<std::size_t>(FileBlockSize(61)), '\0');
  EncodeFileBlock(data.data(), 61, block.data());
  EXPECT_EQ(block[80], '\n');
  EXPECT_EQ(block[85], '\n');

  std::vector<unsigned char> back(61);
  bool invalid = true;
  EXPECT_EQ(DecodeFileBlock(block.data(), static_cast<int>(block.size()), 61, back.data(), &invalid), 61);
  EXPECT_FALSE(invalid);
  EXPECT_EQ(back, data);

  // Without the line feed after 20 groups, decoding stops after 60 bytes.
  block[80] = 'x';
  EXPECT_EQ(DecodeFileBlock(block.data(), static_cast<int>(block.size()), 61, back.data(), &invalid), 60);
  EXPECT_TRUE(invalid);
}
