#include "platform/host/ara_stm/StateRequests.h"

#include <utility>

#include "csc_logging/CSCLogging.h"

namespace platform_host {

using nlohmann::json;

namespace {

constexpr const char* kEnding = "the process is ending";

bool IsKnown(const std::string& state) {
  return state == "kOn" || state == "kPrepSD";
}

json Described(const std::optional<StateRequests::Step>& step) {
  if (!step) return nullptr;
  return {{"state", step->state}, {"sequence", step->sequence}};
}

}  // namespace

StateRequests::StateRequests(std::string componentName) : name(std::move(componentName)) {}

void StateRequests::Add(const std::string& state, const ControlReply& reply) {
  if (!IsKnown(state)) return reply.Refuse("unknown state \"" + state + "\"");
  Unconfirmeds refused;
  const char* refusal = nullptr;
  {
    const support::MutexLock lock(mutex);
    refusal = Refusal();
    if (refusal == nullptr) {
      const Step step{requested ? requested->sequence + 1 : 1, state};
      Unconfirmeds added;
      added.push_back({step, reply});
      waiting.push_back(step);
      requested = step;
      unconfirmed.splice(unconfirmed.end(), added);
      if (unconfirmed.size() > kUnconfirmedLimit) {
        refused.splice(refused.end(), unconfirmed, unconfirmed.begin());
      }
      changed.NotifyAll();
    }
  }
  if (refusal != nullptr) reply.Refuse(refusal);
  for (const auto& one : refused) one.reply.Refuse("not confirmed: too many later requests");
}

const char* StateRequests::Refusal() const {
  if (hasEnded) return kEnding;
  return waiting.size() >= kWaitingLimit ? "busy" : nullptr;
}

std::optional<StateRequests::Step> StateRequests::Next() {
  const support::MutexLock lock(mutex);
  while (!hasEnded && waiting.empty()) changed.Wait(mutex);
  if (hasEnded) return std::nullopt;
  Step next = std::move(waiting.front());
  waiting.pop_front();
  return next;
}

void StateRequests::Confirm(std::uint32_t sequence, const std::string& state) {
  Step step{sequence, state};
  const std::string text = std::to_string(sequence);
  Unconfirmeds decided;
  bool isKnown = false;
  {
    const support::MutexLock lock(mutex);
    isKnown = sequence > 0 && requested && sequence <= requested->sequence;
    if (isKnown) {
      decided = TakeUpTo(sequence);
      if (!confirmed || confirmed->sequence <= sequence) confirmed = std::move(step);
    }
  }
  if (!isKnown) {
    csc_logging::CSCLogging::LogWarning("libara_stm: " + name + " confirms request " + text +
                                        ", which nobody has made");
  }
  for (const auto& [demanded, reply] : decided) {
    if (demanded.sequence != sequence) {
      reply.Refuse("superseded by request " + text);
    } else if (demanded.state != state) {
      reply.Refuse("the component confirmed \"" + state + "\" instead");
    } else {
      reply.Answer({{"state", state}, {"sequence", sequence}});
    }
  }
}

StateRequests::Unconfirmeds StateRequests::TakeUpTo(std::uint32_t sequence) {
  auto end = unconfirmed.begin();
  while (end != unconfirmed.end() && end->demanded.sequence <= sequence) ++end;
  Unconfirmeds taken;
  taken.splice(taken.end(), unconfirmed, unconfirmed.begin(), end);
  return taken;
}

void StateRequests::End() {
  Unconfirmeds refused;
  {
    const support::MutexLock lock(mutex);
    hasEnded = true;
    waiting.clear();
    refused.swap(unconfirmed);
    changed.NotifyAll();
  }
  for (const auto& one : refused) one.reply.Refuse(kEnding);
}

json StateRequests::Status() const {
  const support::MutexLock lock(mutex);
  return {{"name", name}, {"requested", Described(requested)}, {"confirmed", Described(confirmed)}};
}

}  // namespace platform_host
