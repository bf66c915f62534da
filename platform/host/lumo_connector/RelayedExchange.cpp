#include "platform/host/lumo_connector/RelayedExchange.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "csc_logging/CSCLogging.h"

namespace platform_host {
namespace {

using csc_logging::CSCLogging;
using Outcome = StreamStep::Outcome;

/// Chunks moved before others have their turn.
constexpr int kChunksATurn = 8;

constexpr const char* kPrefix = "libLumoConnectorShared: ";

}  // namespace

RelayedExchange::RelayedExchange(support::UniqueFd client, std::unique_ptr<PeerStream> peer,
                                 std::string label, GuardRails limits)
    : clientEnd(std::move(client)),
      peerStream(std::move(peer)),
      name(std::move(label)),
      rails(limits),
      answerEvents(POLLIN) {}

/// A socket closed with bytes unread tells the client of a reset in place of the end. After the
/// shutdown the client can add none.
RelayedExchange::~RelayedExchange() {
  ::shutdown(clientEnd.Get(), SHUT_RD);
  std::array<char, 4096> unread{};
  while (::recv(clientEnd.Get(), unread.data(), unread.size(), MSG_DONTWAIT) > 0) {
  }
}

void RelayedExchange::Serve(RelayBuffer& buffer, TimePoint now) {
  hasMore = false;
  MoveRequest(buffer);
  MoveAnswer(buffer, now);
  FinishWhenDelivered();
  if (!isFinished) CheckLimits(now);
}

RelayedExchange::Needs RelayedExchange::NeedsNow() const {
  const int fromClient = !clientHasEnded && request.empty() ? POLLIN : 0;
  const int toClient = answer.empty() ? 0 : POLLOUT;
  const int toPeer = request.empty() ? 0 : requestEvents;
  const bool isReading = answer.empty() && !peerHasEnded && !heldUntil;
  const int fromPeer = isReading ? answerEvents : 0;
  return {static_cast<short>(fromClient | toClient), static_cast<short>(fromPeer | toPeer)};
}

RelayedExchange::TimePoint RelayedExchange::NextCheck() const {
  return heldUntil ? std::min(*heldUntil, rails.NextCheck()) : rails.NextCheck();
}

void RelayedExchange::MoveRequest(RelayBuffer& buffer) {
  for (int chunk = 0; chunk < kChunksATurn; ++chunk) {
    if (!GiveToPeer() || !TakeFromClient(buffer)) return;
  }
  hasMore = true;
}

bool RelayedExchange::TakeFromClient(RelayBuffer& buffer) {
  if (clientHasEnded) return false;
  const ssize_t count = ::recv(clientEnd.Get(), buffer.data(), kRequestChunk, MSG_DONTWAIT);
  if (count < 0) {
    isFinished = isFinished || (errno != EAGAIN && errno != EINTR);
    return false;
  }
  if (count > 0 && peerTakes) request.assign(buffer.data(), buffer.data() + count);
  if (count > 0) return true;
  clientHasEnded = true;
  if (peerTakes) peerStream->EndWriting();
  return false;
}

/// A peer that takes no more may still have given its answer, and must be heard: a refusal of a
/// long request comes this way.
bool RelayedExchange::GiveToPeer() {
  while (!request.empty()) {
    const StreamStep step = peerStream->Write(request.data(), request.size());
    if (step.outcome == Outcome::kWait) {
      requestEvents = step.events;
      return false;
    }
    if (step.outcome != Outcome::kMoved) {
      peerTakes = false;
      request.clear();
      break;
    }
    request.erase(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(step.bytes));
  }
  return true;
}

void RelayedExchange::MoveAnswer(RelayBuffer& buffer, TimePoint now) {
  for (int chunk = 0; chunk < kChunksATurn; ++chunk) {
    if (!FlushAnswer() || !TakeFromPeer(buffer, now)) break;
    hasMore = hasMore || chunk + 1 == kChunksATurn;
  }
  rails.ClientTakes(answer.empty(), now);
}

bool RelayedExchange::TakeFromPeer(RelayBuffer& buffer, TimePoint now) {
  if (peerHasEnded || isFinished || (heldUntil && now < *heldUntil)) return false;
  heldUntil.reset();
  const StreamStep step = peerStream->Read(buffer.data(), buffer.size());
  if (step.outcome == Outcome::kWait) {
    answerEvents = step.events;
    return false;
  }
  if (step.outcome != Outcome::kMoved) {
    EndAnswer(step);
    return false;
  }
  answerEvents = step.events == 0 ? static_cast<short>(POLLIN) : step.events;
  const std::size_t admitted = rails.Admit(step.bytes, now);
  const std::size_t taken = SendToClient(buffer.data(), admitted);
  if (taken < admitted) answer.assign(buffer.data() + taken, buffer.data() + admitted);
  if (admitted < step.bytes) {
    CheckLimits(now);
    return false;
  }
  if (HoldBackAfter(step.bytes, now)) return false;
  // What fell short of the buffer was all there is; asking again would only cost.
  return peerStream->HoldsBytes() || step.bytes == buffer.size();
}

bool RelayedExchange::HoldBackAfter(std::size_t bytes, TimePoint now) {
  if (bytes >= kShortPiece || ++shortPieces <= kFreeShortPieces) return false;
  heldUntil = now + kPieceHold;
  return true;
}

bool RelayedExchange::FlushAnswer() {
  if (answer.empty()) return true;
  delivered += SendToClient(answer.data() + delivered, answer.size() - delivered);
  if (delivered < answer.size()) return false;
  answer.clear();
  delivered = 0;
  return true;
}

std::size_t RelayedExchange::SendToClient(const char* bytes, std::size_t size) {
  std::size_t sent = 0;
  while (sent < size) {
    const ssize_t count =
        ::send(clientEnd.Get(), bytes + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      isFinished = isFinished || errno != EAGAIN;
      break;
    }
    sent += static_cast<std::size_t>(count);
  }
  return sent;
}

void RelayedExchange::EndAnswer(const StreamStep& step) {
  peerHasEnded = true;
  const std::string line = kPrefix + name + " ended: " + step.reason;
  if (step.outcome == Outcome::kRefused) CSCLogging::LogWarning(line);
  if (step.outcome == Outcome::kBroken) CSCLogging::LogDebug(line);
}

/// Time that runs out while the rest of an answer is delivered is no second failure.
void RelayedExchange::CheckLimits(TimePoint now) {
  const auto passed = rails.Passed(now);
  if (!passed) return;
  if (peerStream) {
    CSCLogging::LogWarning(kPrefix + std::string("closed ") + name + ": " + passed->reason);
    peerStream.reset();
    peerHasEnded = true;
    peerTakes = false;
    request.clear();
  }
  isFinished = isFinished || !passed->isLength;
}

void RelayedExchange::FinishWhenDelivered() {
  isFinished = isFinished || (peerHasEnded && answer.empty());
}

}  // namespace platform_host
