#include <qorc/qorc.h>

#include <cstdio>

int main() {
  Copen();
  C_STRING text(u"downstream");
  text += u" ok";
  char* bytes = text.GetNewUTF8();
  std::printf("%s\n", bytes);
  delete[] bytes;
  const C_BOOL failed = C_ERROR::Is();
  Cclose();
  return failed ? 1 : 0;
}
