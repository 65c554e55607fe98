// The importers of registry editor files: any bytes are either refused with
// the line named, or imported into real stores. What the parser accepts is
// written out again and must read back the same.
#include <cstdlib>
#include <string>
#include <vector>

#include "device/regkey_file.h"
#include "file_fuzz_support.h"

QORC_FUZZ_INITIALIZE

namespace {

namespace regfile = qorc::regfile;

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

void EmptyStore(C_REGKEY::HANDLE store) {
  C_REGKEY top;
  top.Open(store, C_STRING::VOID, C_REGKEY::READ_WRITE, false);
  Empty(&top);
  top.Close();
  C_ERROR::ClearPending();
}

// Writes the parsed sections out in the editor's form and reads them again.
void CheckRewrite(const std::vector<regfile::ParsedSection>& sections) {
  std::u16string text = std::u16string(regfile::kHeader) + u"\r\n\r\n";
  for (const regfile::ParsedSection& parsed : sections) {
    const regfile::Section& section = parsed.section;
    std::u16string path = regfile::RootName(section.root);
    if (!section.path.empty()) path += u"\\" + section.path;
    text += regfile::SectionLine(section.remove ? u"-" + path : path);
    for (const regfile::Entry& entry : parsed.entries) text += regfile::EntryLine(entry);
    text += u"\r\n";
  }
  const std::string bytes = regfile::FileBytes(text);
  std::vector<regfile::ParsedSection> again;
  regfile::ParseError error;
  if (!regfile::ParseAll(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), &again, &error)) {
    std::abort();
  }
  if (again.size() != sections.size()) std::abort();
  for (std::size_t i = 0; i < again.size(); ++i) {
    const regfile::Section &a = again[i].section, &b = sections[i].section;
    if (a.root != b.root || a.path != b.path || a.remove != b.remove ||
        again[i].entries.size() != sections[i].entries.size()) {
      std::abort();
    }
    for (std::size_t j = 0; j < again[i].entries.size(); ++j) {
      const regfile::Entry &x = again[i].entries[j], &y = sections[i].entries[j];
      if (x.name != y.name || x.remove != y.remove || x.type != y.type || x.data != y.data) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string file = ScratchPath("import.reg");
  static const C_REGKEY::HANDLE user = C_REGKEY::OpenStore(LibraryPath(ScratchPath("user.sqlite")));
  static const C_REGKEY::HANDLE machine = [] {
    C_REGKEY::InitUser(user);
    const C_REGKEY::HANDLE handle = C_REGKEY::OpenStore(LibraryPath(ScratchPath("machine.sqlite")));
    C_REGKEY::InitMachine(handle);
    return handle;
  }();
  C_ERROR::ClearPending();

  std::vector<regfile::ParsedSection> sections;
  regfile::ParseError error;
  const bool parsed = regfile::ParseAll(data, size, &sections, &error);
  if (parsed) CheckRewrite(sections);
  if (!parsed && (error.line < 1 || error.reason.empty())) std::abort();

  WriteScratch(file, data, size);
  // Into the roots the file names: refused files name the line; accepted
  // ones are stored, or a store refuses them as a whole.
  CregkeyImport(LibraryPath(file));
  const C_ERROR* pending = C_ERROR::GetPending();
  if (parsed ? pending != nullptr && pending != &CerrInternalError : pending != &CerrFileContainsInvalidCode) {
    std::abort();
  }
  C_ERROR::ClearPending();
  C_BOOL names[2] = {false, false};
  CregkeyCheck(LibraryPath(file), &names[0], &names[1]);
  if (C_ERROR::Is() == parsed) std::abort();
  C_ERROR::ClearPending();

  // Into one key: the same file may also be refused for naming keys outside
  // the first one.
  C_REGKEY key;
  key.Open(user, C_STRING(u"Fuzz"), C_REGKEY::READ_WRITE, true);
  CregkeyImport(&key, LibraryPath(file));
  pending = C_ERROR::GetPending();
  if (!parsed && pending != &CerrFileContainsInvalidCode) std::abort();
  key.Close();
  C_ERROR::ClearPending();
  EmptyStore(user);
  EmptyStore(machine);
  return 0;
}
