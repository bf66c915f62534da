#include "platform/host/control/ControlReply.h"

#include <atomic>
#include <exception>
#include <string_view>
#include <utility>

namespace platform_host {
namespace {

using nlohmann::json;

/// The line of an answer: "ok" stands first, for people who read along.
std::string MakeLine(bool isOk, const json& values) {
  std::string line = isOk ? R"({"ok":true)" : R"({"ok":false)";
  if (values.empty()) return line + '}';
  line += ',';
  return line.append(values.dump(-1, ' ', false, json::error_handler_t::replace), 1);
}

}  // namespace

/// The one answer that all copies share.
class ControlReply::Pending {
 public:
  explicit Pending(Deliver receiver) : deliver(std::move(receiver)) {}
  ~Pending() {
    Send(false, [] { return json{{"error", "the process is ending"}}; });
  }
  Pending(const Pending&) = delete;
  Pending& operator=(const Pending&) = delete;

  /// `makeValues` gives the members.
  template <typename MakeValues>
  void Send(bool isOk, MakeValues makeValues) noexcept {
    if (isAnswered.exchange(true)) return;
    std::string line;
    try {
      line = MakeLine(isOk, makeValues());
    } catch (const std::exception&) {
      line.clear();
    }
    deliver(std::move(line));
  }

 private:
  const Deliver deliver;
  std::atomic<bool> isAnswered{false};
};

ControlReply::ControlReply(Deliver deliver)
    : pending(std::make_shared<Pending>(std::move(deliver))) {}

void ControlReply::Answer(const json& values) const noexcept {
  pending->Send(true, [&values]() -> const json& { return values; });
}

void ControlReply::Refuse(const std::string& error) const noexcept {
  pending->Send(false, [&error] { return json{{"error", error}}; });
}

}  // namespace platform_host
