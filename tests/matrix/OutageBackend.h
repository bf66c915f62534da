/// The backend and the responder of one update in memory, and what breaks them: the far end of a
/// FakeLumoConnector, as one cell of the table tells.
#ifndef TESTS_MATRIX_OUTAGEBACKEND_H
#define TESTS_MATRIX_OUTAGEBACKEND_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/Mutex.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/matrix/UpdateTable.h"
#include "tests/support/EventLog.h"

namespace tests {

/// The containers of every cell, by their ids.
inline const std::string kInstalledId = "container-0";
inline const std::string kOfferedId = "container-1";

/// Any thread. An outage that recovers strikes once.
class OutageBackend {
 public:
  /// A request for a container, or a report.
  struct Request {
    unsigned number = 0;  ///< the renewal reason, or the status
    std::string operation;
    std::string containerId;
  };

  /// Both outlive it; `connector` answers as the cell's backend from now on.
  OutageBackend(FakeLumoConnector& fakeConnector, const UpdateCell& updateCell);
  OutageBackend(const OutageBackend&) = delete;
  OutageBackend& operator=(const OutageBackend&) = delete;

  /// The outage begins if it is one of `phase`; it does so once.
  void Reach(const std::string& phase) EXCLUDES(mutex);

  /// It is over.
  void End() EXCLUDES(mutex);

  /// Waits until somebody waits for an answer of the kind that the cell's `at` names: "report" or
  /// "silence". False after the deadline.
  [[nodiscard]] bool WaitForRequest() { return events.WaitFor(cell.at); }

  /// They get their answer, or their time is over.
  void LetGo() { events.Add("let go"); }

  [[nodiscard]] std::vector<Request> Downloads() const EXCLUDES(mutex);
  [[nodiscard]] std::vector<Request> Reports() const EXCLUDES(mutex);

 private:
  void Prepare(const std::string& call);
  void PlayPeer(PeerStream& peer);
  void Download(PeerStream& peer, const std::string& body);
  void Report(PeerStream& peer, const std::string& body);
  void Respond(PeerStream& peer);
  [[nodiscard]] bool Misbehaves(PeerStream& peer, const std::string& dueBody);
  void BeSilent(PeerStream& peer);
  void Hold(const std::string& kind);
  [[nodiscard]] std::string Message();

  /// Whether the outage `name` is met now.
  [[nodiscard]] bool Strikes(const std::string& name) EXCLUDES(mutex);

  FakeLumoConnector& connector;
  const UpdateCell& cell;
  EventLog events;
  mutable support::Mutex mutex;
  bool hasBegun GUARDED_BY(mutex) = false;
  bool isThere GUARDED_BY(mutex) = false;
  bool signerIsRevoked GUARDED_BY(mutex) = false;
  std::vector<Request> downloads GUARDED_BY(mutex);
  std::vector<Request> reports GUARDED_BY(mutex);
};

}  // namespace tests

#endif
