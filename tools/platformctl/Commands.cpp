#include "tools/platformctl/Commands.h"

#include <ostream>

#include "platform/host/csc_logging/LineFormat.h"
#include "tools/platformctl/ExitCode.h"
#include "tools/platformctl/Question.h"
#include "tools/platformctl/StatusTable.h"

namespace platformctl {
namespace {

using nlohmann::json;
using platform_host::Result;

int Fail(const std::string& reason, std::ostream& err) {
  // The reason may be another process's text.
  err << "tsuc-platformctl: " << platform_host::EscapeLine(reason, platform_host::kLineLimit)
      << '\n';
  return kNotDone;
}

/// A member of an answer as text: an answer may lack it.
std::string Told(const json& answer, const char* key) {
  const auto found = answer.find(key);
  const std::string text =
      found == answer.end() ? "-" : found->dump(-1, ' ', false, json::error_handler_t::replace);
  return platform_host::EscapeLine(text, platform_host::kLineLimit);
}

Question AtOnce(json request) {
  return {std::move(request), kAnswerLimit,
          "no answer within " + std::to_string(kAnswerLimit.count()) + " s"};
}

/// What the process understands by "2" or "auto".
json StateOf(const std::string& text) {
  return text == "auto" ? json(text) : json(std::stoi(text));
}

}  // namespace

int RunStatus(const std::string& path, const StatusOptions& options, std::ostream& out,
              std::ostream& err) {
  const Result<json> answer = Ask(path, AtOnce({{"command", "status"}}));
  if (!answer.Ok()) return Fail(answer.Failure().Text(), err);
  const auto status = answer.Value().find("status");
  if (status == answer.Value().end() || !status->is_object()) {
    return Fail(path + ": its answer holds no status", err);
  }
  if (options.json) {
    out << status->dump(2, ' ', false, json::error_handler_t::replace) << '\n';
  } else {
    out << FormatStatus(*status);
  }
  return kDone;
}

int RunState(const std::string& path, const StateOptions& options, std::ostream& out,
             std::ostream& err) {
  const Question question{
      {{"command", "state"}, {"state", options.state}},
      std::chrono::seconds(options.timeoutSeconds),
      options.state + " was not confirmed within " + std::to_string(options.timeoutSeconds) + " s"};
  const Result<json> answer = Ask(path, question);
  if (!answer.Ok()) return Fail(answer.Failure().Text(), err);
  if (answer.Value().value("state", json()) != options.state) {
    return Fail(path + ": confirmed another state: " + Told(answer.Value(), "state"), err);
  }
  out << options.state << " confirmed (" << Told(answer.Value(), "sequence") << ")\n";
  return kDone;
}

int RunConnection(const std::string& path, const ConnectionOptions& options, std::ostream& out,
                  std::ostream& err) {
  const Result<json> answer =
      Ask(path, AtOnce({{"command", "connection"}, {"state", StateOf(options.state)}}));
  if (!answer.Ok()) return Fail(answer.Failure().Text(), err);
  const bool isHeld = answer.Value().value("held", json()) == true;
  out << "connection state " << Told(answer.Value(), "state")
      << (isHeld ? ", held\n" : ", following the broker\n");
  return kDone;
}

}  // namespace platformctl
