// A small host program: starts the library, installs a report handler,
// builds and converts strings, provokes a failure and reports it,
// registers installation roots to expand, reduce and compare paths, and
// keeps a document in the library's compressed format.
#include <qorc/qorc.h>

#include <cstdio>

namespace {

void PrintUtf8(const char* label, const C_STRING& text) {
  char* bytes = text.GetNewUTF8();
  std::printf("%-28s %s\n", label, bytes != nullptr ? bytes : "(no memory)");
  delete[] bytes;
}

// The host's way of telling the user: here, standard output.
void ReportToConsole(const C_STRING& key, const C_STRING& text) {
  PrintUtf8("report key:", key);
  PrintUtf8("report text:", text);
}

// Writes a compressed document of numbered lines, reads one line back from
// the middle of it in place, and checks the file. Returns false on failure.
bool CompressedDocument() {
  C_STRING path = C_FILE::GetTempDir();
  path += u"qorc-example-document.qz";
  const int lines = 20000;
  {
    C_FILE document(path, C_FILE::WRITE, C_FILE::COMPRESSED);
    for (int i = 0; i < lines && !C_ERROR::Is(); ++i) {
      // A binary file holds UTF-16 text: every line is 32 units, 64 bytes.
      document.Write(i, C_STRING(u"line %06d of the document....\n"));
    }
  }
  if (C_ERROR::Is()) return false;
  C_STRING line;
  {
    C_FILE document(path, C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
    document.SetPosit(64LL * 12345);
    char16_t units[31];
    document.Read(static_cast<int>(sizeof units), units);
    line = C_STRING(31, units);
  }
  if (C_ERROR::Is()) return false;
  PrintUtf8("line read in place:", line);
  C_FILE::CheckCompression(path);
  const bool sound = !C_ERROR::Is();
  std::printf("%-28s %s\n", "compressed document check:", sound ? "sound" : "damaged");
  C_FILE::Remove(path);
  return sound && line == C_STRING(u"line 012345 of the document....");
}

}  // namespace

int main() {
  Copen();
  C_ERROR::SetReportHandler(ReportToConsole);

  C_STRING greeting(u"Gr\u00fc\u00dfe");
  greeting += u", ";
  greeting += C_STRING(42);
  greeting += C_CHAR(u'!');
  PrintUtf8("built string:", greeting);
  PrintUtf8("formatted real:", C_STRING(3.14159, 2, 'f'));
  PrintUtf8("formatted integer:", C_STRING(255, C_STRING(u"[%04X]")));
  PrintUtf8("formatted text:", C_STRING(C_STRING(u"left"), C_STRING(u"[%-8s]")));
  std::printf("%-28s %s\n", "as ANSI:", greeting.GetANSI());
  std::printf("%-28s %s\n", "as MBCS:", greeting.GetMBCS());

  C_STRING roundTrip;
  roundTrip.FromUTF8("\xE2\x82\xAC 12");
  PrintUtf8("from UTF-8:", roundTrip);

  // A failure: a string cannot grow beyond 65535 characters.
  C_ERROR::ContextPush(C_STRING(u"while building the greeting"));
  greeting.Grow(70000);
  if (C_ERROR::Is()) {
    std::printf("%-28s %s\n", "pending:", CerrValueTooHigh.IsPending() ? "CerrValueTooHigh" : "other");
    C_ERROR::ReportPending();
  }
  C_ERROR::ContextPop();
  std::printf("%-28s %d\n", "greeting length kept:", greeting.GetNumber());

  // Installation roots: the host registers them once, at start-up, in the
  // library's path form ("\" as separator), as CompressPath gives it.
  C_FILE::AddRoot(C_STRING(u"QORHOME"), C_FILE::CompressPath(C_STRING(u"/opt/qor")));
  C_FILE::AddRoot(C_STRING(u"QORCONFIG"), C_FILE::CompressPath(C_STRING(u"/opt/qor/etc")));
  C_STRING stored(u"$QORCONFIG/site.ini");
  C_STRING path(stored);
  C_FILE::ExpandPath(&path);
  PrintUtf8("stored path:", stored);
  PrintUtf8("expanded:", path);
  C_STRING root;
  C_STRING inside(path);
  C_FILE::RemoveRoot(&inside, &root);
  PrintUtf8("longest root:", root);
  PrintUtf8("path under it:", inside);
  C_STRING back(path);
  C_FILE::ReplaceRoot(&back);
  PrintUtf8("stored form again:", back);
  const C_STRING other(u"/OPT/qor/bin/../ETC/./Site.ini");
  std::printf("%-28s %s\n", "same file as the other:", C_FILE::HasSamePath(stored, other) ? "yes" : "no");

  C_ERROR::ClearPending();
  if (!CompressedDocument()) {
    C_ERROR::ReportPending();
    Cclose();
    return 1;
  }

  const int failed = C_ERROR::Is() ? 1 : 0;
  Cclose();
  return failed;
}
