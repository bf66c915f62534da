/// What the libraries of this process offer at the control socket: parts of the status, and
/// commands. Each library offers its own; ControlServer asks. docs/host-platform.md describes the
/// requests.
#ifndef PLATFORM_HOST_CONTROL_CONTROLBOARD_H
#define PLATFORM_HOST_CONTROL_CONTROLBOARD_H

#include <functional>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <variant>

#include "platform/host/control/ControlReply.h"
#include "support/Mutex.h"

namespace platform_host {

/// Operations may be called from any thread; none holds a lock while it calls an offer. Outlives
/// its offers.
class ControlBoard {
 public:
  /// Gives the value of one part of the status, as it is now. Called on the control thread, one
  /// call at a time; must not wait for a peer. What it throws becomes the part's value, as an
  /// object with the member "error".
  using StatusPart = std::function<nlohmann::json()>;

  /// Answers `request`, an object, now or later. Called on the control thread, one call at a time;
  /// must not wait. What it throws refuses the request.
  using Command = std::function<void(const nlohmann::json& request, const ControlReply& reply)>;

  class Offer;

  /// The board of this process. It is never destroyed.
  static ControlBoard& OfProcess();

  ControlBoard();
  ~ControlBoard();
  ControlBoard(const ControlBoard&) = delete;
  ControlBoard& operator=(const ControlBoard&) = delete;

  /// Adds the member `name` to the status. Of several offers of one name the newest counts. Throws
  /// std::bad_alloc.
  [[nodiscard]] std::unique_ptr<Offer> OfferStatus(const std::string& name, StatusPart part)
      EXCLUDES(mutex);

  /// Serves requests whose "command" is `name`, any but "status". Of several offers of one name the
  /// newest counts. Throws std::bad_alloc.
  [[nodiscard]] std::unique_ptr<Offer> OfferCommand(const std::string& name, Command command)
      EXCLUDES(mutex);

  /// Serves one request, a line without its end: any bytes. The answer goes to `reply`, at once or
  /// later. Does not throw but for exhausted memory.
  void Serve(const std::string& line, const ControlReply& reply) EXCLUDES(mutex);

 private:
  /// What one offer serves.
  struct Entry {
    std::string name;
    std::variant<StatusPart, Command> serve;
    bool isCalled = false;
  };
  using Entries = std::list<Entry>;
  struct CallUnderWay;

  [[nodiscard]] std::unique_ptr<Offer> Add(Entry entry) EXCLUDES(mutex);

  /// Takes the entry away, so that nobody finds it, and waits for its call.
  void Withdraw(Entries::iterator entry) EXCLUDES(mutex);

  /// The names of all parts of the status.
  [[nodiscard]] std::set<std::string> StatusNames() EXCLUDES(mutex);

  /// The newest entry of this kind and name.
  template <typename Kind>
  [[nodiscard]] Entry* FindNewest(const std::string& name) REQUIRES(mutex);

  /// Calls what that entry serves, with no lock held, once nobody else calls it. Returns false when
  /// there is none.
  template <typename Kind, typename Call>
  bool CallNewest(const std::string& name, Call call) EXCLUDES(mutex);

  void EndCall(Entry& entry) EXCLUDES(mutex);

  void AnswerStatus(const ControlReply& reply) EXCLUDES(mutex);

  support::Mutex mutex;
  support::ConditionVariable callEnded;
  Entries entries GUARDED_BY(mutex);  ///< the newest first
};

/// Keeps an offer on the board. Its end waits for a call of the offer under way; none follows. Must
/// not end inside that call.
class ControlBoard::Offer {
 public:
  ~Offer();
  Offer(const Offer&) = delete;
  Offer& operator=(const Offer&) = delete;

 private:
  friend class ControlBoard;
  Offer(ControlBoard& owner, Entries::iterator own);

  ControlBoard& board;
  const Entries::iterator entry;
};

}  // namespace platform_host

#endif
