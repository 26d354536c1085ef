// Progress commands: JSON wrapping and the percentage rule.
#include "accounting/services/progress.h"

#include <cmath>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace kvc {

std::string CommandAsJson(const std::string& command) { return nlohmann::json(command).dump(); }

std::string CommandFromJson(const std::string& json_command) {
  nlohmann::json j = nlohmann::json::parse(json_command, nullptr, false);
  if (!j.is_string())
    throw std::invalid_argument("progress command is not a JSON string: " + json_command);
  return j.get<std::string>();
}

void SendCommand(IProgressCallback* callback, const std::string& command) {
  if (callback) callback->Execute(CommandAsJson(command));
}

void ProgressPhase::Begin(const std::string& message) {
  SendCommand(callback_, kCmdCaption + message);
  SendCommand(callback_, std::string(kCmdBar) + "0");
  count_ = 0;
  last_ = 0;
}

void ProgressPhase::Step() {
  ++count_;
  if (total_ <= 0) return;
  // trunc(k / N * 100) computed in floating point, as callers have always
  // seen it (29 of 100 gives 28, since 0.29 * 100 is 28.999...).
  int32_t percent = static_cast<int32_t>(
      std::trunc(static_cast<double>(count_) / static_cast<double>(total_) * 100.0));
  if (percent > last_) {
    last_ = percent;
    SendCommand(callback_, std::string(kCmdBar) + std::to_string(percent));
  }
}

}  // namespace kvc
