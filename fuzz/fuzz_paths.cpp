// Path texts from documents and users: expansion through the roots, file-name
// splitting and shrinking, suffixes and indexes, compaction, comparison; the
// kernel's mount table as the network names read it; dates read from text and
// formatted by a caller's format.
#include <qorc/qorc.h>

#include <cstdint>
#include <string>

#include "platform/posix/mountinfo.h"

namespace {

void RegisterRoots() {
  static bool done = false;
  if (done) return;
  done = true;
  C_FILE::AddRoot(C_STRING(u"QORHOME"), C_STRING(u"\\opt\\qor"));
  C_FILE::AddRoot(C_STRING(u"Q"), C_STRING(u"C:\\$QORHOME\\x"));
  C_FILE::AddRoot(C_STRING(u"LOOP"), C_STRING(u"a\\$LOOP"));
  C_FILE::AddRoot(C_STRING(u""), C_STRING(u"\\\\srv\\share"));
}

void Exercise(const C_STRING& text, const C_STRING& other, int width) {
  C_STRING path(text);
  C_FILE::ExpandPath(&path);
  C_ERROR::ClearPending();
  path = text;
  C_FILE::ExpandPathNoCase(&path);
  C_ERROR::ClearPending();

  C_STRING root;
  path = text;
  C_FILE::RemoveRoot(&path, &root);
  path = text;
  C_FILE::ReplaceRoot(&path);
  path = text;
  C_FILE::ShrinkPath(&path);
  path = text;
  C_FILE::ShareRootPath(other, &path);
  C_FILE::HasSamePath(text, other);
  C_ERROR::ClearPending();

  C_STRING a;
  C_STRING b;
  C_FILE::SplitPath(text, &a, &b);
  int count = 0;
  C_STRING* parts = nullptr;
  C_FILE::SplitDir(text, &root, &count, &parts);
  delete[] parts;
  C_FILE::CompactPath(text, width, &a);
  for (int managed = 0; managed < 2; ++managed) {
    CfileManageIndex = managed != 0;
    C_FILE::SplitName(text, &a, &b);
    C_FILE::GetSuffix(text, &a);
    path = text;
    C_FILE::SetSuffix(other, &path);
    path = text;
    C_FILE::RemoveSuffix(&path, &a);
  }
  CfileManageIndex = false;
  C_FILE::GetPrefix(text, &a);
  path = text;
  C_FILE::SetIndex(width, &path);
  path = text;
  C_FILE::RemoveIndex(&path, &a);
  C_ERROR::ClearPending();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  RegisterRoots();
  if (size < 1) return 0;
  const int width = static_cast<int>(data[0]) - 8;
  // The rest as UTF-16 units, split in two texts at the first zero unit.
  std::u16string units;
  for (std::size_t i = 1; i + 1 < size; i += 2) units += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
  const std::size_t cut = units.find(u'\0');
  const std::u16string first = units.substr(0, cut);
  const std::u16string second = cut == std::u16string::npos ? std::u16string() : units.substr(cut + 1);
  const C_STRING text(static_cast<int>(first.size()), first.data());
  const C_STRING other(static_cast<int>(second.size()), second.data());
  Exercise(text, other, width);

  const C_DATE date(text);
  C_STRING formatted;
  date.GetString(other, &formatted);
  date.GetString(width, &formatted);
  date.GetString(&formatted);
  C_ERROR::ClearPending();

  std::string source;
  qorc::platform::posix::FindNetworkSource(std::string(reinterpret_cast<const char*>(data), size), "/mnt", &source);
  return 0;
}
