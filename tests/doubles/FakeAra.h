/// Execution, state and health management in memory. A test program links fake_ara in place of the
/// host platform's libraries: every call of ara::exec, ara::stm and ara::phm then goes to the
/// FakeAra alive, which says what it answers, asks for states and remembers what was reported. Any
/// thread.
#ifndef TESTS_DOUBLES_FAKEARA_H
#define TESTS_DOUBLES_FAKEARA_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tests {

class FakeAraCore;

/// Made before whatever uses it, one alive at a time. Fresh: everything succeeds. Calls made while
/// none is alive fail.
class FakeAra {
 public:
  /// What CheckpointReached does.
  enum class Checkpoints {
    kSucceed,
    kThrow,               ///< std::runtime_error("no health management")
    kThrowWhatIsNoError,  ///< an int
  };

  FakeAra();

  /// REQUIRES: no component client is left.
  ~FakeAra();
  FakeAra(const FakeAra&) = delete;
  FakeAra& operator=(const FakeAra&) = delete;

  /// No report of a state is delivered from now on.
  void FailReports();

  /// No component client can be made from now on, for this reason.
  void FailComponentClient(const std::string& error);

  /// The next component client is asked for `state` before it has been given to its creator.
  void RequestDuringCreation(unsigned int sequence, const std::string& state);

  /// Whatever is made for health management throws std::runtime_error("no health management") from
  /// now on, if its kind is `kind`: "client", "supervision" or "channel".
  void FailHealthObjects(const std::string& kind);

  void SetCheckpoints(Checkpoints behaviour);

  /// Each confirmation calls `action` before it is remembered, from now on.
  void DuringConfirmations(std::function<void()> action);

  /// Asks the component client for `state` on the thread of state management and returns when its
  /// handler has; does nothing without a component client. Not to be called inside a handler.
  void RequestState(unsigned int sequence, const std::string& state);

  /// Whether there is a component client.
  [[nodiscard]] bool HasComponentClient() const;

  /// Every call so far, oldest first, its arguments behind it:
  ///   "report running", "report terminating", "component NAME", "component created",
  ///   "component ended", "confirm SEQUENCE STATE", "client INSTANCE", "supervision INSTANCE",
  ///   "channel INSTANCE", "checkpoint ENTITY ID"
  [[nodiscard]] std::vector<std::string> Calls() const;

  /// Those of Calls that begin with `begin`.
  [[nodiscard]] std::vector<std::string> Calls(const std::string& begin) const;

 private:
  std::shared_ptr<FakeAraCore> core;
};

}  // namespace tests

#endif
