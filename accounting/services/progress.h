// The progress callback through which long operations talk to their caller,
// and the one piece that sends its commands and percentages.
#ifndef KVC_SERVICES_PROGRESS_H_
#define KVC_SERVICES_PROGRESS_H_

#include <cstdint>
#include <string>

#include "accounting/db/api.h"

namespace kvc {

// The caller's callback: one operation that receives a command as a JSON
// string value (the command text, quoted and escaped as JSON). Its result is
// ignored.
class KVC_API IProgressCallback {
 public:
  virtual ~IProgressCallback() = default;
  virtual void Execute(const std::string& json_command) = 0;
};

// Command texts: a target and a value joined by "#$#".
inline constexpr char kCmdSeparator[] = "#$#";
inline constexpr char kCmdCaption[] = "pnlMensagem.Caption#$#";
inline constexpr char kCmdBar[] = "pBar#$#";
inline constexpr char kCmdError[] = "mtError#$#";

// Sends one command text through `callback` (nothing when it is null).
KVC_API void SendCommand(IProgressCallback* callback, const std::string& command);

// The JSON string value of a command, as handed to Execute.
KVC_API std::string CommandAsJson(const std::string& command);
// The command text back from a JSON string value; throws
// std::invalid_argument when the text is not a JSON string.
KVC_API std::string CommandFromJson(const std::string& json_command);

// A phase of a long operation over `total` records: Begin sends the status
// caption and "pBar#$#0"; Step counts a record and sends "pBar#$#" + P, with
// P = trunc(k / total * 100) in floating point, only when total > 0 and P is above the last
// percentage sent in this phase. So a phase sends at most 100 bar values,
// never repeats one and never goes back.
class KVC_API ProgressPhase {
 public:
  ProgressPhase(IProgressCallback* callback, int64_t total) : callback_(callback), total_(total) {}

  // Sends "pnlMensagem.Caption#$#" + message, then "pBar#$#0".
  void Begin(const std::string& message);
  // Counts one record.
  void Step();
  int64_t Count() const { return count_; }
  int32_t LastSent() const { return last_; }

 private:
  IProgressCallback* callback_;
  int64_t total_;
  int64_t count_ = 0;
  int32_t last_ = 0;
};

}  // namespace kvc

#endif  // KVC_SERVICES_PROGRESS_H_
