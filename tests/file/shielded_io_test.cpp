// Shielded blocks in files: layout, round trips in every route, damaged blocks.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "support/temp_dir.h"

namespace {

std::string Shielded(const std::string& path, const std::string& data, int mode, C_FILE::TYPE type) {
  C_FILE file(LibraryPath(path), mode, type);
  int consumed = -1, written = -1;
  file.WriteShielded(static_cast<int>(data.size()), const_cast<char*>(data.data()), &consumed, &written);
  EXPECT_EQ(consumed, static_cast<int>(data.size()));
  EXPECT_FALSE(C_ERROR::Is());
  return std::to_string(written);
}

}  // namespace

TEST(ShieldedFile, LayoutOfTheBlock) {
  TempDir dir;
  const std::string path = dir.File("s.txt");
  EXPECT_EQ(Shielded(path, std::string(60, '\x01'), C_FILE::WRITE, C_FILE::TEXT), "81");
  std::string bytes = ReadBytes(path);
  EXPECT_EQ(bytes.size(), 81u);
  EXPECT_EQ(bytes[80], '\n');
  EXPECT_EQ(bytes.find('\n'), 80u);
  EXPECT_EQ(Shielded(path, std::string(61, '\x01'), C_FILE::WRITE, C_FILE::BINARY), "86");
  bytes = ReadBytes(path);
  EXPECT_EQ(bytes[80], '\n');
  EXPECT_EQ(bytes[85], '\n');
  EXPECT_EQ(bytes.substr(81, 4), "1000");  // one byte 1, padded with '0'
  // Nothing to write: nothing written, counts zero.
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
  int consumed = -1, written = -1;
  file.WriteShielded(0, nullptr, &consumed, &written);
  EXPECT_EQ(consumed, 0);
  EXPECT_EQ(written, 0);
  file.WriteShielded(0, nullptr, nullptr, nullptr);
}

TEST(ShieldedFile, RoundTripsInEveryRoute) {
  TempDir dir;
  const std::string data = RandomBytes(5000);
  struct Route {
    int writeMode, readMode;
    C_FILE::TYPE type;
  };
  const Route routes[] = {{C_FILE::WRITE, C_FILE::READ, C_FILE::TEXT},
                          {C_FILE::WRITE, C_FILE::READ, C_FILE::BINARY},
                          {C_FILE::WRITE, C_FILE::READ, C_FILE::COMPRESSED},
                          {C_FILE::WRITE | C_FILE::DIRECT, C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED}};
  for (const Route& route : routes) {
    const std::string path = dir.File("r");
    {
      C_FILE file(LibraryPath(path), route.writeMode, route.type);
      file.Write(7, "header\n");
      file.WriteShielded(static_cast<int>(data.size()), const_cast<char*>(data.data()), nullptr, nullptr);
      file.WriteShielded(2, const_cast<char*>("ok"), nullptr, nullptr);
    }
    C_FILE file(LibraryPath(path), route.readMode, route.type);
    char header[7];
    file.Read(7, header);
    EXPECT_EQ(std::string(header, 7), "header\n");
    std::vector<char> out(data.size());
    int decoded = 0, read = 0;
    file.ReadShielded(static_cast<int>(data.size()), out.data(), &decoded, &read);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(decoded, static_cast<int>(data.size()));
    EXPECT_EQ(read, 4 * 1667 + 84);
    EXPECT_TRUE(std::string(out.data(), out.size()) == data);
    char ok[2];
    file.ReadShielded(2, ok, &decoded, nullptr);
    EXPECT_EQ(std::string(ok, 2), "ok");
    file.ReadShielded(2, ok, &decoded, &read);
    EXPECT_EQ(read, 0);
    EXPECT_TRUE(TakePending(CerrFileEndReached));
  }
}

TEST(ShieldedFile, DamagedBlocks) {
  TempDir dir;
  const std::string path = dir.File("d.txt");
  const std::string data = RandomBytes(90);
  Shielded(path, data, C_FILE::WRITE, C_FILE::BINARY);
  const std::string good = ReadBytes(path);
  const C_STRING expanded = ExpandedPath(path);
  std::vector<char> out(90);
  int decoded = 0, read = 0;
  // The 81st byte must be a line feed.
  std::string bytes = good;
  bytes[80] = 'x';
  WriteBytes(path, bytes);
  {
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::BINARY);
    file.ReadShielded(90, out.data(), &decoded, &read);
    EXPECT_EQ(decoded, 60);
    EXPECT_EQ(std::string(out.data(), 60), data.substr(0, 60));
    EXPECT_TRUE(CerrFileContainsInvalidCode.IsPending());
    EXPECT_TRUE(C_ERROR::GetPendingExtra() == expanded);
    C_ERROR::ClearPending();
  }
  bytes = good;
  bytes[5] = '#';
  WriteBytes(path, bytes);
  {
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::BINARY);
    file.ReadShielded(90, out.data(), &decoded, &read);
    EXPECT_EQ(decoded, 3);
    EXPECT_TRUE(TakePending(CerrFileContainsInvalidCode));
  }
  WriteBytes(path, good.substr(0, 50));
  {
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::BINARY);
    file.ReadShielded(90, out.data(), &decoded, &read);
    EXPECT_EQ(read, 50);
    EXPECT_EQ(decoded, 36);
    EXPECT_TRUE(TakePending(CerrFileEndReached));
  }
  C_FILE full(C_STRING(u"/dev/full"), C_FILE::WRITE, C_FILE::BINARY);
  const std::string big = RandomBytes(30000);
  int consumed = -1, written = -1;
  full.WriteShielded(static_cast<int>(big.size()), const_cast<char*>(big.data()), &consumed, &written);
  EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));
  EXPECT_LT(written, 40500);
  EXPECT_EQ(consumed, (written * 3 + 3) / 4);
}
