#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> g_calls;

void Record(const std::string& call) { g_calls.push_back(call); }
std::string Text(const C_STRING& text) { return text.GetMBCS(); }

// No nesting, range checking or memory of the position: values go through as given.
void DriveProgress() {
  C_PROGRESS::Open(-5, C_STRING("Saving"), false);
  C_PROGRESS::Open(7, C_STRING("Inner"), true);
  C_PROGRESS::SetRange(0);
  C_PROGRESS::SetPos(1000);
  C_PROGRESS::Step();
  C_PROGRESS::OffsetValue(-3);
  C_PROGRESS::Close();
}

TEST(Hooks, ProgressForwardsEveryCallUnchanged) {
  C_PROGRESS::SetOpenHandler([](int range, const C_STRING& title, C_BOOL flag) {
    Record("open " + std::to_string(range) + " " + Text(title) + " " + std::to_string(int(flag)));
  });
  C_PROGRESS::SetSetRangeHandler([](int v) { Record("range " + std::to_string(v)); });
  C_PROGRESS::SetSetPosHandler([](int v) { Record("pos " + std::to_string(v)); });
  C_PROGRESS::SetStepHandler([] { Record("step"); });
  C_PROGRESS::SetOffsetValueHandler([](int v) { Record("offset " + std::to_string(v)); });
  C_PROGRESS::SetCloseHandler([] { Record("old close"); });
  C_PROGRESS::SetCloseHandler([] { Record("close"); });  // replaces the first
  C_PROGRESS::SetIsOpenHandler([]() -> C_BOOL { return true; });
  DriveProgress();
  EXPECT_TRUE(C_PROGRESS::IsOpen());
  const std::vector<std::string> expected = {"open -5 Saving 0", "open 7 Inner 1", "range 0", "pos 1000", "step",
                                             "offset -3",        "close"};
  EXPECT_EQ(g_calls, expected);
  // Null handlers restore the defaults, which do nothing.
  C_PROGRESS::SetOpenHandler(nullptr);
  C_PROGRESS::SetStepHandler(nullptr);
  C_PROGRESS::SetCloseHandler(nullptr);
  C_PROGRESS::SetSetRangeHandler(nullptr);
  C_PROGRESS::SetSetPosHandler(nullptr);
  C_PROGRESS::SetOffsetValueHandler(nullptr);
  C_PROGRESS::SetIsOpenHandler(nullptr);
  g_calls.clear();
  DriveProgress();
  EXPECT_TRUE(!C_PROGRESS::IsOpen() && g_calls.empty() && !C_ERROR::Is());
}

TEST(Hooks, SystemForwardsToTheHost) {
  CsystemSetInterruptHandler([]() -> C_BOOL { return true; });
  CsystemSetEditFileHandler(
      [](const C_STRING& path, C_BOOL flag) { Record(Text(path) + " " + std::to_string(int(flag))); });
  CsystemSetFileDialogLoadHandler(
      [](const C_STRING& a, const C_STRING& b, const C_STRING& c, const C_STRING& d, C_STRING* out) -> C_BOOL {
        *out = C_STRING((Text(a) + Text(b) + Text(c) + Text(d)).c_str());
        return true;
      });
  // The handler's answer comes back as it is, whatever it did to the result.
  CsystemSetFileDialogSaveHandler(
      [](const C_STRING&, const C_STRING&, const C_STRING&, const C_STRING&, C_STRING* out) -> C_BOOL {
        *out = C_STRING("cancelled");
        return false;
      });
  EXPECT_TRUE(CsystemIsInterrupted());
  CsystemEditFile(C_STRING("\\docs\\notes.txt"), false);
  EXPECT_EQ(g_calls, std::vector<std::string>{"\\docs\\notes.txt 0"});
  C_STRING result;
  const C_STRING a("1"), b("2"), c("3"), d("4");
  EXPECT_TRUE(CsystemFileDialogLoad(a, b, c, d, &result) && Text(result) == "1234");
  EXPECT_TRUE(!CsystemFileDialogSave(a, b, c, d, &result) && Text(result) == "cancelled");
  CsystemSetInterruptHandler(nullptr);
  CsystemSetEditFileHandler(nullptr);
  CsystemSetFileDialogLoadHandler(nullptr);
  CsystemSetFileDialogSaveHandler(nullptr);
  // Null handlers restore the defaults, which answer false and change nothing.
  g_calls.clear();
  CsystemEditFile(C_STRING("notes.txt"), true);
  EXPECT_FALSE(CsystemIsInterrupted() || CsystemFileDialogLoad(a, b, c, d, &result) ||
               CsystemFileDialogSave(a, b, c, d, &result));
  EXPECT_TRUE(Text(result) == "cancelled" && g_calls.empty() && !C_ERROR::Is());
}

}  // namespace
