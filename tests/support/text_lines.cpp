// Writes and reads TEXT files through the library, for the checks that files
// written on one system read back the same on the other.
//   qorc_text_lines write FILE LINE...   one line each (UTF-8 arguments)
//   qorc_text_lines read FILE            the lines read, as UTF-8, each ended by LF
// Exit code 0, or 1 with the pending error's key on standard error.
#include <qorc/qorc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace {

int Failed() {
  std::fprintf(stderr, "%s\n", C_ERROR::GetPending() != nullptr ? C_ERROR::GetPending()->GetKey().GetANSI() : "?");
  return 1;
}

C_STRING FromUtf8(const char* text) {
  C_STRING out;
  out.FromUTF8(text);
  return out;
}

int Write(const char* path, int count, char** lines) {
  C_FILE file(FromUtf8(path), C_FILE::WRITE, C_FILE::TEXT);
  for (int i = 0; i < count && !C_ERROR::Is(); ++i) {
    file.Write(FromUtf8(lines[i]));
    file.WriteEOL();
  }
  return C_ERROR::Is() ? Failed() : 0;
}

int Read(const char* path) {
  C_FILE file(FromUtf8(path), C_FILE::READ, C_FILE::AUTO);
  if (C_ERROR::Is()) return Failed();
  for (;;) {
    C_STRING line;
    file.Read(&line);
    if (CerrFileEndReached.IsPending()) {
      C_ERROR::ClearPending();
      return 0;
    }
    if (C_ERROR::Is()) return Failed();
    // A line comes with its LF, which is printed once.
    if (line.GetNumber() > 0 && static_cast<char16_t>(line.Get(line.GetNumber() - 1)) == u'\n') {
      line = C_STRING(line.GetNumber() - 1, line.GetWCHAR());
    }
    char* utf8 = line.GetNewUTF8();
    std::fputs(utf8 != nullptr ? utf8 : "", stdout);
    delete[] utf8;
    std::fputc('\n', stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  Copen();
  int status = 2;
  if (argc >= 3 && std::strcmp(argv[1], "write") == 0) status = Write(argv[2], argc - 3, argv + 3);
  if (argc == 3 && std::strcmp(argv[1], "read") == 0) status = Read(argv[2]);
  Cclose();
  return status;
}
