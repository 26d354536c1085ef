// Progress commands: their JSON form and the percentage rule of a phase.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "accounting/services/progress.h"

namespace kvc::testing {
namespace {

class RecordingCallback : public IProgressCallback {
 public:
  void Execute(const std::string& json_command) override {
    raw.push_back(json_command);
    commands.push_back(CommandFromJson(json_command));
  }
  std::vector<std::string> raw;
  std::vector<std::string> commands;
};

TEST(Progress, CommandTravelsAsJsonStringValue) {
  RecordingCallback cb;
  SendCommand(&cb, "pnlMensagem.Caption#$#Atualizando \"saldo\" ...");
  ASSERT_EQ(cb.raw.size(), 1u);
  EXPECT_EQ(cb.raw[0], "\"pnlMensagem.Caption#$#Atualizando \\\"saldo\\\" ...\"");
  EXPECT_EQ(cb.commands[0], "pnlMensagem.Caption#$#Atualizando \"saldo\" ...");
}

TEST(Progress, NullCallbackIsIgnored) { EXPECT_NO_THROW(SendCommand(nullptr, "pBar#$#0")); }

TEST(Progress, PhaseBeginsWithCaptionAndZero) {
  RecordingCallback cb;
  ProgressPhase phase(&cb, 10);
  phase.Begin("Buscando o movimento e saldo do período ...");
  EXPECT_EQ(cb.commands,
            (std::vector<std::string>{
                "pnlMensagem.Caption#$#Buscando o movimento e saldo do período ...", "pBar#$#0"}));
}

TEST(Progress, BarNeverRepeatsNorGoesBackAndStopsAtHundred) {
  RecordingCallback cb;
  ProgressPhase phase(&cb, 1000);
  for (int i = 0; i < 1000; ++i) phase.Step();
  EXPECT_EQ(cb.commands.size(), 100u);
  int last = 0;
  for (const auto& c : cb.commands) {
    ASSERT_EQ(c.rfind("pBar#$#", 0), 0u);
    int value = std::stoi(c.substr(7));
    EXPECT_GT(value, last);
    last = value;
  }
  EXPECT_EQ(last, 100);
}

TEST(Progress, FewRecordsJumpInLargeSteps) {
  RecordingCallback cb;
  ProgressPhase phase(&cb, 3);
  for (int i = 0; i < 3; ++i) phase.Step();
  EXPECT_EQ(cb.commands, (std::vector<std::string>{"pBar#$#33", "pBar#$#66", "pBar#$#100"}));
}

TEST(Progress, PercentageIsTruncatedInFloatingPoint) {
  // 29 of 100 is 0.29 * 100 = 28.999..., truncated to 28.
  RecordingCallback cb;
  ProgressPhase phase(&cb, 100);
  for (int i = 0; i < 29; ++i) phase.Step();
  EXPECT_EQ(cb.commands.back(), "pBar#$#28");
  EXPECT_EQ(phase.LastSent(), 28);
}

TEST(Progress, EmptyPhaseSendsNoBar) {
  RecordingCallback cb;
  ProgressPhase phase(&cb, 0);
  phase.Step();
  EXPECT_TRUE(cb.commands.empty());
}

}  // namespace
}  // namespace kvc::testing
