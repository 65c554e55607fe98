// The importer of registry editor files: any bytes are either refused with
// the line named, or imported into a real store. What the parser accepts is
// written out again and must read back the same.
#include <cstdlib>
#include <string>
#include <vector>

#include "device/regkey_file.h"
#include "file_fuzz_support.h"

QORC_FUZZ_INITIALIZE

namespace {

// Deletes everything under the key, deepest first.
void Empty(C_REGKEY* key) {
  int count = 0;
  C_STRING* names = nullptr;
  key->GetSubkeys(&count, &names);
  for (int i = 0; i < count; ++i) {
    C_REGKEY child;
    child.Open(key, names[i], C_REGKEY::READ_WRITE, false);
    Empty(&child);
    child.Close();
    key->Delete(names[i]);
  }
  delete[] names;
}

// Writes the parsed sections out under a fixed first key and reads them again.
void CheckRewrite(const std::vector<qorc::regfile::Section>& sections) {
  std::u16string text = std::u16string(qorc::regfile::kHeader) + u"\r\n\r\n";
  for (const qorc::regfile::Section& section : sections) {
    const std::u16string path = section.path.empty() ? u"K" : u"K\\" + section.path;
    text += qorc::regfile::SectionLine(section.remove ? u"-" + path : path);
    for (const qorc::regfile::Entry& entry : section.entries) text += qorc::regfile::EntryLine(entry);
    text += u"\r\n";
  }
  const std::string bytes = qorc::regfile::FileBytes(text);
  std::vector<qorc::regfile::Section> again;
  qorc::regfile::ParseError error;
  if (!qorc::regfile::Parse(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), &again, &error)) {
    std::abort();
  }
  if (again.size() != sections.size()) std::abort();
  for (std::size_t i = 0; i < again.size(); ++i) {
    if (again[i].path != sections[i].path || again[i].remove != sections[i].remove ||
        again[i].entries.size() != sections[i].entries.size()) {
      std::abort();
    }
    for (std::size_t j = 0; j < again[i].entries.size(); ++j) {
      const qorc::regfile::Entry &a = again[i].entries[j], &b = sections[i].entries[j];
      if (a.name != b.name || a.remove != b.remove || a.type != b.type || a.data != b.data) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string file = ScratchPath("import.reg");
  static const C_REGKEY::HANDLE store = C_REGKEY::OpenStore(LibraryPath(ScratchPath("import.sqlite")));
  C_ERROR::ClearPending();

  std::vector<qorc::regfile::Section> sections;
  qorc::regfile::ParseError error;
  const bool parsed = qorc::regfile::Parse(data, size, &sections, &error);
  if (parsed) CheckRewrite(sections);
  if (!parsed && error.line < 1) std::abort();

  WriteScratch(file, data, size);
  C_REGKEY key;
  key.Open(store, C_STRING(u"Fuzz"), C_REGKEY::READ_WRITE, true);
  CregkeyImport(&key, LibraryPath(file));
  const C_ERROR* pending = C_ERROR::GetPending();
  // Refused files name the line; accepted ones are stored, or the store
  // refuses them as a whole (a name too long for a key, for instance).
  if (parsed ? pending != nullptr && pending != &CerrInternalError : pending != &CerrFileContainsInvalidCode) {
    std::abort();
  }
  C_ERROR::ClearPending();
  Empty(&key);
  key.Close();
  C_ERROR::ClearPending();
  return 0;
}
