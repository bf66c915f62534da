// Requests at the control socket: any line is answered exactly once, with one line of JSON in UTF-8
// that says whether it was done; and it reaches a command only when an independent look at the line
// agrees.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "fuzz/Require.h"
#include "platform/host/control/ControlBoard.h"

namespace {

using fuzz::Require;
using nlohmann::json;
using platform_host::ControlBoard;
using platform_host::ControlReply;

/// A process' libraries: parts of a status, one of which fails, and commands that answer with what
/// they were asked, throw, or forget to answer.
struct Offers {
  ControlBoard board;
  int calls = 0;
  std::unique_ptr<ControlBoard::Offer> part = board.OfferStatus("session", [] {
    return json{{"status", 2}};
  });
  std::unique_ptr<ControlBoard::Offer> failing =
      board.OfferStatus("bundles", []() -> json { throw std::bad_alloc(); });
  std::unique_ptr<ControlBoard::Offer> state =
      board.OfferCommand("state", [this](const json& request, const ControlReply& reply) {
        ++calls;
        reply.Answer(json{{"state", request.at("state").get<std::string>()}});
      });
  std::unique_ptr<ControlBoard::Offer> forgetful =
      board.OfferCommand("forget", [this](const json&, const ControlReply&) { ++calls; });
};

struct Answers {
  int count = 0;
  std::string line;
};

Answers Ask(ControlBoard& board, const std::string& line) {
  Answers answers;
  board.Serve(line, ControlReply([&answers](std::string answer) {
                ++answers.count;
                answers.line = std::move(answer);
              }));
  return answers;
}

/// Whether the line names a command as every request has to.
bool MayBeCommand(const std::string& line) {
  const auto begin = line.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
  return begin != std::string::npos && line[begin] == '{' && line.find('}') != std::string::npos &&
         line.find('"') != std::string::npos && line.find('\0') == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto* const offers = new Offers;
  const std::string line(data, data + size);
  const int callsBefore = offers->calls;
  const Answers answers = Ask(offers->board, line);

  Require(answers.count == 1, "a request is answered once");
  Require(answers.line.find('\n') == std::string::npos, "an answer is one line");
  const json answer = json::parse(answers.line, nullptr, false);
  Require(answer.is_object() && answer.value("ok", json()).is_boolean(), "an answer says ok");
  const bool isOk = answer.at("ok").get<bool>();
  Require(isOk || answer.value("error", json()).is_string(), "a refusal says why");
  Require(!isOk || answer.contains("status") || answer.contains("state"), "what is done is told");
  Require(MayBeCommand(line) || (!isOk && offers->calls == callsBefore),
          "what is no request is refused, and reaches nobody");
  Require(offers->calls - callsBefore <= 1, "a request reaches one command");
  return 0;
}
