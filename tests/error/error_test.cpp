#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace {

const C_ERROR ErrorA("C#Err#A failed");
const C_ERROR ErrorB("C#Err#B failed");

std::string Narrow(const C_STRING& s) {
  char* bytes = s.GetNewUTF8();
  std::string out = bytes != nullptr ? bytes : "";
  delete[] bytes;
  return out;
}

int g_triggerCalls = 0;
const C_ERROR* g_triggered = nullptr;
const C_STRING* g_triggeredExtra = nullptr;
void CountTrigger(const C_ERROR& error, const C_STRING* extra) {
  ++g_triggerCalls;
  g_triggered = &error;
  g_triggeredExtra = extra;
}

std::vector<std::pair<std::string, std::string>> g_reports;
void RecordReport(const C_STRING& key, const C_STRING& text) { g_reports.emplace_back(Narrow(key), Narrow(text)); }

class PendingError : public testing::Test {
 protected:
  void SetUp() override {
    g_triggerCalls = 0;
    g_triggered = nullptr;
    g_triggeredExtra = nullptr;
    g_reports.clear();
  }
};

}  // namespace

TEST_F(PendingError, FirstErrorWinsAndReplacingFormsReplace) {
  const C_STRING extraA(u"a.txt");
  ErrorA.Trigger(&extraA);
  ErrorB.Trigger();
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == u"a.txt");
  EXPECT_TRUE(ErrorA.IsPending());

  ErrorB.Retrigger();
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorB);
  EXPECT_TRUE(C_ERROR::GetPendingExtra().IsVoid());

  ErrorA.RetriggerMild(&extraA);
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
  C_ERROR::ClearPending();
  EXPECT_FALSE(C_ERROR::Is());
  // Clearing keeps the extra text until the next recording.
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == u"a.txt");
}

TEST_F(PendingError, MildBehavesExactlyAsPlain) {
  C_ERROR::SetTriggerHandler(CountTrigger);
  const C_STRING extra(u"x");
  ErrorA.TriggerMild(&extra);
  ErrorB.TriggerMild();
  EXPECT_EQ(g_triggerCalls, 1);
  EXPECT_EQ(g_triggered, &ErrorA);
  EXPECT_EQ(g_triggeredExtra, &extra);
}

TEST_F(PendingError, DebugFormsRecordInternalErrorAndNeverReplace) {
  C_ERROR::SetTriggerHandler(CountTrigger);
  const C_STRING extra(u"ignored");
  C_ERROR::TriggerDbg("C#Err#whatever", &extra);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInternalError);
  EXPECT_TRUE(C_ERROR::GetPendingExtra().IsVoid());
  EXPECT_EQ(g_triggerCalls, 1);
  EXPECT_EQ(g_triggeredExtra, nullptr);

  C_ERROR::ClearPending();
  ErrorA.Trigger();
  g_triggerCalls = 0;
  C_ERROR::RetriggerDbg("C#Err#whatever", &extra);
  C_ERROR::RetriggerDbgMild(C_STRING(u"C#Err#other"), &extra);
  ErrorB.TriggerDbg(&extra);
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
  EXPECT_EQ(g_triggerCalls, 0);
}

TEST_F(PendingError, HiddenErrorStillBlocksAndIsNotReported) {
  C_ERROR::SetReportHandler(RecordReport);
  ErrorA.Trigger();
  C_ERROR::Hide(true);
  C_ERROR::Hide(true);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
  EXPECT_TRUE(C_ERROR::IsHidden());
  ErrorB.Trigger();
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
  C_ERROR::ReportPending();
  EXPECT_TRUE(g_reports.empty());
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
  C_ERROR::Hide(false);  // one call undoes any number of hides
  EXPECT_TRUE(C_ERROR::Is());
}

TEST_F(PendingError, ReportComposesExtraAndInnermostContext) {
  const C_STRING extra(u"E");
  ErrorA.Trigger();
  C_ERROR::ReportPending();  // without a handler the error is cleared silently
  EXPECT_EQ(C_ERROR::GetPending(), nullptr);

  C_ERROR::SetReportHandler(RecordReport);
  ErrorA.Trigger(&extra);
  C_ERROR::ReportPendingWindow();  // the window form uses its own handler only
  ErrorA.Trigger(&extra);
  C_ERROR::ReportPending();
  C_ERROR::ContextPush(C_STRING(u"A"));
  C_ERROR::ContextPush(C_STRING(u"B"));
  ErrorA.Trigger();
  C_ERROR::ReportPending();
  C_ERROR::ContextPop();
  ErrorB.Trigger(&extra);
  C_ERROR::ReportPending();

  using Report = std::pair<std::string, std::string>;
  EXPECT_EQ(g_reports,
            (std::vector<Report>{{"C#Err#A failed", "E"}, {"C#Err#A failed", "B"}, {"C#Err#B failed", "E A"}}));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(PendingError, ContextStackGrowsAndDropsPushesOnlyWhenFull) {
  for (int i = 0; i < 11; ++i) C_ERROR::ContextPush(C_STRING(i));
  EXPECT_EQ(C_ERROR::ContextNba, 20);
  EXPECT_EQ(C_ERROR::ContextNb, 11);
  for (int i = 0; i < 11; ++i) EXPECT_TRUE(C_ERROR::ContextStrings[i] == C_STRING(i));

  // With an error pending, a push that fits succeeds; one that needs growth is dropped.
  ErrorA.Trigger();
  while (C_ERROR::ContextNb < C_ERROR::ContextNba - 1) C_ERROR::ContextPush(C_STRING(u"fill"));
  C_ERROR::ContextPush(C_STRING(u"last slot"));
  C_ERROR::ContextPush(C_STRING(u"dropped"));
  EXPECT_EQ(C_ERROR::ContextNb, 20);
  EXPECT_EQ(C_ERROR::ContextNba, 20);
  EXPECT_TRUE(C_ERROR::ContextStrings[19] == u"last slot");

  while (C_ERROR::ContextNb > 0) C_ERROR::ContextPop();
  C_ERROR::ContextPop();
  EXPECT_EQ(C_ERROR::ContextNb, 0);
}

TEST_F(PendingError, TextKeysReuseOneDescriptorPerOverload) {
  C_ERROR::Trigger("C#Err#First");
  const C_ERROR* first = C_ERROR::GetPending();
  EXPECT_TRUE(first->GetKey() == u"C#Err#First");
  C_ERROR::ClearPending();
  C_ERROR::Trigger("C#Err#Second");
  EXPECT_EQ(C_ERROR::GetPending(), first);
  EXPECT_TRUE(first->GetKey() == u"C#Err#Second");
  EXPECT_NE(first, &CerrInternalError);
  // A blocked text trigger does not touch its descriptor.
  C_ERROR::Trigger(C_STRING(u"C#Err#Other"));
  EXPECT_EQ(C_ERROR::GetPending(), first);
}

TEST_F(PendingError, ReplacingByTextKeyReportsTheNewKey) {
  C_ERROR::SetReportHandler(RecordReport);
  const C_STRING extra(u"x.dat");
  using Replace = void (*)(const char*, const C_STRING*);
  using ReplaceByString = void (*)(const C_STRING&, const C_STRING*);
  for (Replace replace : {static_cast<Replace>(&C_ERROR::Retrigger), static_cast<Replace>(&C_ERROR::RetriggerMild)}) {
    ErrorA.Trigger();
    replace("C#Err#Replacing key", &extra);
    ASSERT_NE(C_ERROR::GetPending(), nullptr);
    EXPECT_TRUE(C_ERROR::GetPending()->GetKey() == u"C#Err#Replacing key");
    C_ERROR::ReportPending();
  }
  for (ReplaceByString replace :
       {static_cast<ReplaceByString>(&C_ERROR::Retrigger), static_cast<ReplaceByString>(&C_ERROR::RetriggerMild)}) {
    ErrorB.Trigger();
    replace(C_STRING(u"C#Err#Replacing string"), nullptr);
    C_ERROR::ReportPending();
  }
  using Report = std::pair<std::string, std::string>;
  EXPECT_EQ(g_reports, (std::vector<Report>{{"C#Err#Replacing key", "x.dat"},
                                            {"C#Err#Replacing key", "x.dat"},
                                            {"C#Err#Replacing string", ""},
                                            {"C#Err#Replacing string", ""}}));
  // Setting the extra text while an error is pending, and composing the
  // report, keep their texts too.
  C_ERROR::ContextPush(C_STRING(u"loading"));
  ErrorA.Trigger();
  C_ERROR::TriggerExtra(C_STRING(u"set later"));
  C_ERROR::ReportPending();
  EXPECT_EQ(g_reports.back(), Report("C#Err#A failed", "set later loading"));
}

TEST_F(PendingError, ValuesAreBuiltWhileAnErrorIsPending) {
  // Only an allocation's own failure makes a string come out empty.
  ErrorA.Trigger();
  const C_STRING wide(L"caf\u00e9 \U0001F600");
  EXPECT_TRUE(wide == u"caf\u00e9 \U0001F600");
  C_STRING assigned;
  assigned = "assigned key";
  EXPECT_TRUE(assigned == u"assigned key");
  EXPECT_TRUE(C_STRING(u"left ") + C_STRING(u"right") == u"left right");
  EXPECT_EQ(C_ERROR::GetPending(), &ErrorA);
}

#if !defined(__SANITIZE_ADDRESS__)
TEST_F(PendingError, ContextGrowthThatRunsOutOfMemoryBehindAHiddenErrorIsDropped) {
  const int status = RunInChild(
      [] {
        while (C_ERROR::ContextNb < C_ERROR::ContextNba || C_ERROR::ContextNba == 0) {
          C_ERROR::ContextPush(C_STRING(u"kept"));
        }
        const int count = C_ERROR::ContextNb;
        const C_STRING* table = C_ERROR::ContextStrings;
        const C_STRING text(u"dropped");
        ErrorA.Trigger();
        C_ERROR::Hide(true);
        // Use up what the limit leaves, down to the blocks kept for reuse in
        // every small size class. The blocks stay with the child.
        void* volatile block = nullptr;
        for (std::size_t size = 256 * 1024; size >= 16; size = size > 4096 ? 4096 : size - 8) {
          do block = std::malloc(size);
          while (block != nullptr);
        }
        C_ERROR::ContextPush(text);
        if (C_ERROR::ContextNb != count || C_ERROR::ContextStrings != table) return 1;
        if (C_ERROR::GetPending() != &ErrorA || !(table[count - 1] == u"kept")) return 2;
        return 0;
      },
      32 * 1024 * 1024);
  EXPECT_EQ(status, 0);
}
#endif

TEST(ErrorCatalogue, KeysAreExact) {
  const std::pair<const C_ERROR*, const char*> expected[] = {
      {&CerrInternalError, "C#Err#Function failure"},
      {&CerrFileNotFound, "C#Err#File not found"},
      {&CerrFileNotEnoughSpace, "C#Err#Disk full"},
      {&CerrMemoryFull, "C#Err#Not enough memory"},
      {&CerrStringCannotConvertMBCS, "C#Err#Cannot convert string to MBCS"},
      {&CerrValueTooHigh, "C#Err#Value is too high"},
      {&CerrSerialCannotRead, "C#Err#Reading operation on serial line failed"},
      {&CerrFileCannotSeek, "C#Err#Unable to change position in file"},
      {&CerrNotAnOleStreamFunction, "C#Err#Not an OLE stream function"},
  };
  for (const auto& entry : expected) EXPECT_EQ(Narrow(*entry.first), entry.second);
}
