// Test entry: the library is opened once, as a host does, and every test
// starts without a pending error, hidden flag or handler.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

namespace {

class ErrorStateReset : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    C_ERROR::ClearPending();
    C_ERROR::Hide(false);
    C_ERROR::SetTriggerHandler(nullptr);
    C_ERROR::SetReportHandler(nullptr);
    C_ERROR::SetReportWindowHandler(nullptr);
    while (C_ERROR::ContextNb > 0) C_ERROR::ContextPop();
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  Copen();
  testing::UnitTest::GetInstance()->listeners().Append(new ErrorStateReset);
  return RUN_ALL_TESTS();
}
