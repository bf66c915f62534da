#include "platform/host/control/ControlBoard.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace platform_host {
namespace {

using nlohmann::json;

/// The request that every process serves.
constexpr const char* kStatus = "status";

/// What a call of an offer throws, in words; empty when it throws nothing. No offer may end the
/// thread that asks it.
template <typename Call>
std::string FailureOf(Call call) {
  try {
    call();
    return "";
  } catch (const std::exception& error) {
    return *error.what() == '\0' ? "failed" : error.what();
  } catch (...) {
    return "failed";
  }
}

/// The value of one part, or what went wrong with it.
json ValueOf(const ControlBoard::StatusPart& part) {
  json value;
  const std::string failure = FailureOf([&] { value = part(); });
  if (failure.empty()) return value;
  return json{{"error", failure}};
}

}  // namespace

ControlBoard& ControlBoard::OfProcess() {
  static auto* const board = new ControlBoard;
  return *board;
}

ControlBoard::ControlBoard() = default;
ControlBoard::~ControlBoard() = default;

ControlBoard::Offer::Offer(ControlBoard& owner, Entries::iterator own) : board(owner), entry(own) {}

ControlBoard::Offer::~Offer() {
  board.Withdraw(entry);
}

std::unique_ptr<ControlBoard::Offer> ControlBoard::OfferStatus(const std::string& name,
                                                               StatusPart part) {
  return Add({name, std::move(part)});
}

std::unique_ptr<ControlBoard::Offer> ControlBoard::OfferCommand(const std::string& name,
                                                                Command command) {
  return Add({name, std::move(command)});
}

std::unique_ptr<ControlBoard::Offer> ControlBoard::Add(Entry entry) {
  Entries added;
  added.push_front(std::move(entry));
  // Made before the board shows the entry: nothing can fail from then on.
  std::unique_ptr<Offer> offer(new Offer(*this, added.begin()));
  const support::MutexLock lock(mutex);
  entries.splice(entries.begin(), added);
  return offer;
}

void ControlBoard::Withdraw(Entries::iterator entry) {
  Entries withdrawn;
  const support::MutexLock lock(mutex);
  withdrawn.splice(withdrawn.begin(), entries, entry);
  while (entry->isCalled) callEnded.Wait(mutex);
}

std::set<std::string> ControlBoard::StatusNames() {
  const support::MutexLock lock(mutex);
  std::set<std::string> names;
  for (const auto& entry : entries) {
    if (std::holds_alternative<StatusPart>(entry.serve)) names.insert(entry.name);
  }
  return names;
}

/// Tells who waits for a call's end, also when the call threw.
struct ControlBoard::CallUnderWay {
  ~CallUnderWay() { board.EndCall(entry); }

  ControlBoard& board;
  Entry& entry;
};

template <typename Kind>
ControlBoard::Entry* ControlBoard::FindNewest(const std::string& name) {
  const auto found = std::find_if(entries.begin(), entries.end(), [&name](const Entry& entry) {
    return entry.name == name && std::holds_alternative<Kind>(entry.serve);
  });
  return found == entries.end() ? nullptr : &*found;
}

template <typename Kind, typename Call>
bool ControlBoard::CallNewest(const std::string& name, Call call) {
  Entry* entry = nullptr;
  {
    const support::MutexLock lock(mutex);
    // What is found may be another one after each wait.
    while ((entry = FindNewest<Kind>(name)) != nullptr && entry->isCalled) callEnded.Wait(mutex);
    if (entry == nullptr) return false;
    entry->isCalled = true;
  }
  const CallUnderWay underWay{*this, *entry};
  call(std::get<Kind>(entry->serve));
  return true;
}

void ControlBoard::EndCall(Entry& entry) {
  const support::MutexLock lock(mutex);
  entry.isCalled = false;
  callEnded.NotifyAll();
}

void ControlBoard::AnswerStatus(const ControlReply& reply) {
  json answer;
  json& status = answer["status"] = json::object();
  for (const auto& name : StatusNames()) {
    CallNewest<StatusPart>(name, [&](const StatusPart& part) { status[name] = ValueOf(part); });
  }
  reply.Answer(answer);
}

void ControlBoard::Serve(const std::string& line, const ControlReply& reply) {
  // The parser takes a NUL byte for the end of the text.
  const bool hasNul = line.find('\0') != std::string::npos;
  const json request = hasNul ? json() : json::parse(line, nullptr, false);
  if (hasNul || request.is_discarded()) return reply.Refuse("the request is not JSON in UTF-8");
  if (!request.is_object()) return reply.Refuse("the request is not an object");
  const auto command = request.find("command");
  if (command == request.end() || !command->is_string()) {
    return reply.Refuse("the request has no \"command\" that is a text");
  }
  const auto& name = command->get_ref<const std::string&>();
  if (name == kStatus) return AnswerStatus(reply);
  const auto serve = [&](const Command& offered) {
    const std::string failure = FailureOf([&] { offered(request, reply); });
    if (!failure.empty()) reply.Refuse(failure);
  };
  if (!CallNewest<Command>(name, serve)) {
    reply.Refuse("nobody serves the command \"" + name + "\" here");
  }
}

}  // namespace platform_host
