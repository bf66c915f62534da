/// One exchange after it has been opened: bytes go from the client's descriptor to the peer and
/// back until one of them closes or a limit is passed. For Relay: its thread alone.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_RELAYEDEXCHANGE_H
#define PLATFORM_HOST_LUMO_CONNECTOR_RELAYEDEXCHANGE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/lumo_connector/GuardRails.h"
#include "platform/host/lumo_connector/PeerStream.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Most bytes that are moved at once, and that wait for the client when it is slow.
inline constexpr std::size_t kRelayChunk = 131072;

/// Most bytes of a request that wait for the peer when it is slow.
inline constexpr std::size_t kRequestChunk = 16384;

/// Each piece of an answer wakes the client and makes it write a line of the log. After this many
/// that are shorter than a packet, more of them are held back until kPieceHold has passed, and
/// delivered together: a peer must not fill the unit's log byte by byte.
inline constexpr std::size_t kFreeShortPieces = 256;
inline constexpr std::size_t kShortPiece = 1024;
inline constexpr std::chrono::milliseconds kPieceHold{50};

/// Room to move bytes through; one for all exchanges.
using RelayBuffer = std::array<char, kRelayChunk>;

/// A client's descriptor and a peer's stream. Both are closed when it is destroyed.
class RelayedExchange {
 public:
  using TimePoint = GuardRails::TimePoint;

  /// What both sides have to be ready for before Serve is of use; poll's events.
  struct Needs {
    short client = 0;
    short peer = 0;
  };

  /// `client` is this side's end of the client's stream. `label` names the exchange in log lines:
  /// "HOST:PORT for OPERATION".
  RelayedExchange(support::UniqueFd client, std::unique_ptr<PeerStream> peer, std::string label,
                  GuardRails limits);

  /// The client reads what was delivered, then the end.
  ~RelayedExchange();
  RelayedExchange(const RelayedExchange&) = delete;
  RelayedExchange& operator=(const RelayedExchange&) = delete;

  /// Moves what can be moved, within a share that leaves time for others. A limit that is passed
  /// ends the exchange with one warning line. Never waits.
  void Serve(RelayBuffer& buffer, TimePoint now);

  /// The client has closed its descriptor: nobody is left to serve.
  void Abandon() { isFinished = true; }

  [[nodiscard]] bool IsFinished() const { return isFinished; }

  /// Whether Serve can go on at once.
  [[nodiscard]] bool HasMore() const { return hasMore; }
  [[nodiscard]] Needs NeedsNow() const;

  /// When Serve is of use even if nobody is ready: a limit may have been passed, or short pieces
  /// have been held back long enough.
  [[nodiscard]] TimePoint NextCheck() const;
  [[nodiscard]] int ClientDescriptor() const { return clientEnd.Get(); }

  /// -1 once the peer is closed.
  [[nodiscard]] int PeerDescriptor() const { return peerStream ? peerStream->Descriptor() : -1; }

 private:
  void MoveRequest(RelayBuffer& buffer);
  void MoveAnswer(RelayBuffer& buffer, TimePoint now);

  /// One step of each. Return false when nothing more can be moved now.
  [[nodiscard]] bool TakeFromClient(RelayBuffer& buffer);
  [[nodiscard]] bool GiveToPeer();
  [[nodiscard]] bool TakeFromPeer(RelayBuffer& buffer, TimePoint now);
  [[nodiscard]] bool FlushAnswer();

  /// Counts a piece of `bytes`. Returns true when the next ones are to be held back.
  [[nodiscard]] bool HoldBackAfter(std::size_t bytes, TimePoint now);

  /// Returns how many bytes the client's descriptor took; less than all: it is full or gone.
  [[nodiscard]] std::size_t SendToClient(const char* bytes, std::size_t size);

  void EndAnswer(const StreamStep& step);

  /// Closes the peer after a limit. What was admitted of an answer that is too long is delivered.
  void CheckLimits(TimePoint now);

  /// Nothing more comes from the peer and everything that came is delivered.
  void FinishWhenDelivered();

  const support::UniqueFd clientEnd;
  std::unique_ptr<PeerStream> peerStream;  ///< null after a limit
  const std::string name;
  GuardRails rails;

  std::vector<char> request;    ///< waits for the peer
  bool clientHasEnded = false;  ///< it writes no more
  bool peerTakes = true;        ///< false: what the client still writes is dropped
  short requestEvents = 0;      ///< what the peer must be ready for to take `request`

  std::vector<char> answer;  ///< waits for the client, from `delivered` on
  std::size_t delivered = 0;
  bool peerHasEnded = false;
  short answerEvents;  ///< what the peer must be ready for to give more
  std::size_t shortPieces = 0;
  std::optional<TimePoint> heldUntil;  ///< nothing is read from the peer before

  bool hasMore = true;  ///< a handshake may have read ahead
  bool isFinished = false;
};

}  // namespace platform_host

#endif
