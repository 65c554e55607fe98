#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> g_calls;

class HandlerReset : public testing::Test {
 protected:
  void TearDown() override {
    C_PROGRESS::SetOpenHandler(nullptr);
    C_PROGRESS::SetSetRangeHandler(nullptr);
    C_PROGRESS::SetSetPosHandler(nullptr);
    C_PROGRESS::SetStepHandler(nullptr);
    C_PROGRESS::SetOffsetValueHandler(nullptr);
    C_PROGRESS::SetCloseHandler(nullptr);
    C_PROGRESS::SetIsOpenHandler(nullptr);
    CsystemSetInterruptHandler(nullptr);
    CsystemSetEditFileHandler(nullptr);
    CsystemSetFileDialogLoadHandler(nullptr);
    CsystemSetFileDialogSaveHandler(nullptr);
    g_calls.clear();
  }
};

using ProgressFacade = HandlerReset;
using SystemFacade = HandlerReset;

std::string Narrow(const C_STRING& text) { return text.GetMBCS(); }

TEST_F(ProgressFacade, DoesNothingWithoutHandlers) {
  C_PROGRESS::Open(100, C_STRING("Loading"), true);
  C_PROGRESS::SetRange(10);
  C_PROGRESS::SetPos(5);
  C_PROGRESS::Step();
  C_PROGRESS::OffsetValue(2);
  C_PROGRESS::Close();
  EXPECT_FALSE(C_PROGRESS::IsOpen());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ProgressFacade, ForwardsEveryCallUnchanged) {
  C_PROGRESS::SetOpenHandler([](int range, const C_STRING& title, C_BOOL flag) {
    g_calls.push_back("open " + std::to_string(range) + " " + Narrow(title) + " " + std::to_string(int(flag)));
  });
  C_PROGRESS::SetSetRangeHandler([](int v) { g_calls.push_back("range " + std::to_string(v)); });
  C_PROGRESS::SetSetPosHandler([](int v) { g_calls.push_back("pos " + std::to_string(v)); });
  C_PROGRESS::SetStepHandler([] { g_calls.push_back("step"); });
  C_PROGRESS::SetOffsetValueHandler([](int v) { g_calls.push_back("offset " + std::to_string(v)); });
  C_PROGRESS::SetCloseHandler([] { g_calls.push_back("close"); });
  C_PROGRESS::SetIsOpenHandler([]() -> C_BOOL { return true; });

  // No nesting, range checking or memory of the position: values go through as given.
  C_PROGRESS::Open(-5, C_STRING("Saving"), false);
  C_PROGRESS::Open(7, C_STRING("Inner"), true);
  C_PROGRESS::SetRange(0);
  C_PROGRESS::SetPos(1000);
  C_PROGRESS::Step();
  C_PROGRESS::Step();
  C_PROGRESS::OffsetValue(-3);
  C_PROGRESS::Close();
  EXPECT_TRUE(C_PROGRESS::IsOpen());
  const std::vector<std::string> expected = {
      "open -5 Saving 0", "open 7 Inner 1", "range 0", "pos 1000", "step", "step", "offset -3", "close"};
  EXPECT_EQ(g_calls, expected);

  // Null restores the default; a new handler replaces the old one.
  C_PROGRESS::SetIsOpenHandler(nullptr);
  EXPECT_FALSE(C_PROGRESS::IsOpen());
  C_PROGRESS::SetStepHandler(nullptr);
  C_PROGRESS::SetCloseHandler([] { g_calls.push_back("other close"); });
  g_calls.clear();
  C_PROGRESS::Step();
  C_PROGRESS::Close();
  EXPECT_EQ(g_calls, std::vector<std::string>{"other close"});

  // An object of the facade has nothing to copy.
  C_PROGRESS first;
  C_PROGRESS second;
  first = second;
}

TEST_F(SystemFacade, AnswersFalseWithoutHandlers) {
  EXPECT_FALSE(CsystemIsInterrupted());
  CsystemEditFile(C_STRING("notes.txt"), true);
  C_STRING result("unchanged");
  EXPECT_FALSE(CsystemFileDialogLoad(C_STRING("a"), C_STRING("b"), C_STRING("c"), C_STRING("d"), &result));
  EXPECT_FALSE(CsystemFileDialogSave(C_STRING("a"), C_STRING("b"), C_STRING("c"), C_STRING("d"), &result));
  EXPECT_EQ(Narrow(result), "unchanged");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(SystemFacade, ForwardsToTheHostsHandlers) {
  CsystemSetInterruptHandler([]() -> C_BOOL { return true; });
  EXPECT_TRUE(CsystemIsInterrupted());
  CsystemSetInterruptHandler(nullptr);
  EXPECT_FALSE(CsystemIsInterrupted());

  CsystemSetEditFileHandler([](const C_STRING& path, C_BOOL flag) {
    g_calls.push_back("edit " + Narrow(path) + " " + std::to_string(int(flag)));
  });
  CsystemEditFile(C_STRING("\\docs\\notes.txt"), false);
  EXPECT_EQ(g_calls, std::vector<std::string>{"edit \\docs\\notes.txt 0"});

  CsystemSetFileDialogLoadHandler(
      [](const C_STRING& a, const C_STRING& b, const C_STRING& c, const C_STRING& d, C_STRING* result) -> C_BOOL {
        *result = C_STRING((Narrow(a) + Narrow(b) + Narrow(c) + Narrow(d)).c_str());
        return true;
      });
  CsystemSetFileDialogSaveHandler(
      [](const C_STRING&, const C_STRING&, const C_STRING&, const C_STRING&, C_STRING* result) -> C_BOOL {
        *result = C_STRING("cancelled");
        return false;
      });
  C_STRING result;
  EXPECT_TRUE(CsystemFileDialogLoad(C_STRING("1"), C_STRING("2"), C_STRING("3"), C_STRING("4"), &result));
  EXPECT_EQ(Narrow(result), "1234");
  // The handler's answer comes back as it is, whatever it did to the result.
  EXPECT_FALSE(CsystemFileDialogSave(C_STRING("1"), C_STRING("2"), C_STRING("3"), C_STRING("4"), &result));
  EXPECT_EQ(Narrow(result), "cancelled");
}

}  // namespace
