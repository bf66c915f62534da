#include "tools/platformctl/StatusTable.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/host/csc_logging/LineFormat.h"

namespace platformctl {
namespace {

using nlohmann::json;

constexpr std::size_t kLabelWidth = 13;
constexpr std::size_t kNameWidth = 24;
constexpr std::string_view kUnknown = "-";

/// A text as it is, anything else as JSON, what is missing as "-". The process may be of another
/// version than this tool: nothing is taken for granted.
std::string Show(const json& value) {
  if (value.is_null()) return std::string(kUnknown);
  const std::string text = value.is_string()
                               ? value.get<std::string>()
                               : value.dump(-1, ' ', false, json::error_handler_t::replace);
  return platform_host::EscapeLine(text, platform_host::kLineLimit);
}

/// The member `key`; null when there is none.
const json& Member(const json& value, const char* key) {
  static const auto* const missing = new json;
  if (!value.is_object()) return *missing;
  const auto found = value.find(key);
  return found == value.end() ? *missing : *found;
}

std::string Show(const json& value, const char* key) {
  return Show(Member(value, key));
}

/// `text` and blanks up to `width`, at least one.
std::string Padded(const std::string& text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

std::string Line(const std::string& label, const std::string& text) {
  return Padded(label, kLabelWidth) + text + '\n';
}

/// A line below one with a label.
std::string Indented(const std::string& name, const std::string& text) {
  return "  " + Padded(name, kNameWidth) + text + '\n';
}

/// The elements of an array; none of anything else.
const json& Elements(const json& value) {
  static const auto* const none = new json(json::array());
  return value.is_array() ? value : *none;
}

std::string Application(const json& part) {
  return Line("application", Show(part, "state"));
}

/// "kOn (1)"
std::string Step(const json& step) {
  if (!step.is_object()) return std::string(kUnknown);
  return Show(step, "state") + " (" + Show(step, "sequence") + ")";
}

std::string Component(const json& part) {
  return Line("component", Show(part, "name")) +
         Indented("requested", Step(Member(part, "requested"))) +
         Indented("confirmed", Step(Member(part, "confirmed")));
}

std::string Expected(const json& expected) {
  if (!expected.is_object()) return "";
  return ", " + Show(expected, "indications") + " expected in " + Show(expected, "cycle_ms") +
         " ms";
}

std::string LastReached(const json& age) {
  return age.is_null() ? "" : ", the last " + Show(age) + " ms ago";
}

std::string Checkpoint(const json& checkpoint) {
  const std::string id =
      Show(checkpoint, "supervision_entity_id") + "/" + Show(checkpoint, "checkpoint_id");
  return Indented("checkpoint " + id,
                  Show(checkpoint, "verdict") + ": " + Show(checkpoint, "count") + " reached" +
                      LastReached(Member(checkpoint, "age_ms")) + ", " + Show(checkpoint, "late") +
                      " late" + Expected(Member(checkpoint, "expected")));
}

std::string Supervision(const json& part) {
  std::string lines = Line("supervision", Show(part, "instance"));
  for (const auto& checkpoint : Elements(Member(part, "checkpoints"))) {
    lines += Checkpoint(checkpoint);
  }
  return lines;
}

std::string Session(const json& part) {
  return Line("session", Show(part, "name") + " (" + Show(part, "status") + ")");
}

std::string StateName(const json& state) {
  constexpr std::array<const char*, 4> kNames{"no connection", "connected",
                                              "connected but degraded", "suspended"};
  const bool isKnown = state.is_number_integer() && state >= 1 && state <= kNames.size();
  return isKnown ? kNames.at(state.get<std::size_t>() - 1) : std::string(kUnknown);
}

std::string Connection(const json& part) {
  const json& state = Member(part, "state");
  const bool isHeld = Member(part, "held") == true;
  return Line("connection", StateName(state) + " (" + Show(state) + (isHeld ? "), held" : ")"));
}

std::string Broker(const json& part) {
  if (part.is_null()) return Line("broker", "none configured");
  const bool isConnected = Member(part, "connected") == true;
  std::string lines =
      Line("broker", Show(part, "address") + (isConnected ? ", connected" : ", not connected"));
  for (const auto& topic : Elements(Member(part, "topics"))) {
    lines += Indented(Show(topic, "state"), Show(topic, "topic"));
  }
  return lines;
}

std::string Bundles(const json& part) {
  const json& bundles = Elements(part);
  std::string lines = Line("bundles", std::to_string(bundles.size()));
  for (const auto& bundle : bundles) {
    const json& count = Member(bundle, "certificates");
    lines += Indented(
        Show(bundle, "name"),
        Show(count) + (count == 1 ? " certificate, " : " certificates, ") + Show(bundle, "from"));
  }
  return lines;
}

struct Part {
  const char* name;
  std::string (*format)(const json&);
};

constexpr std::array<Part, 7> kParts{{{"application", Application},
                                      {"component", Component},
                                      {"supervision", Supervision},
                                      {"session", Session},
                                      {"connection", Connection},
                                      {"broker", Broker},
                                      {"bundles", Bundles}}};

/// What a part holds in place of its members when it could not be had.
bool IsFailure(const json& part) {
  return part.is_object() && part.size() == 1 && part.contains("error");
}

std::string FormatPart(const Part& part, const json& status) {
  const auto found = status.find(part.name);
  if (found == status.end()) return Line(part.name, std::string(kUnknown));
  if (IsFailure(*found)) return Line(part.name, "error: " + Show(*found, "error"));
  return part.format(*found);
}

bool IsKnown(const std::string& name) {
  return std::any_of(kParts.begin(), kParts.end(),
                     [&name](const Part& part) { return part.name == name; });
}

}  // namespace

std::string FormatStatus(const json& status) {
  std::string lines;
  for (const auto& part : kParts) lines += FormatPart(part, status);
  for (const auto& [name, value] : status.items()) {
    if (!IsKnown(name)) lines += Line(Show(json(name)), Show(value));
  }
  return lines;
}

}  // namespace platformctl
