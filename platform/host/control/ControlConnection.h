/// One client at the control socket: its requests, one after the other, and their answers. For
/// ControlLoop. The control thread alone.
#ifndef PLATFORM_HOST_CONTROL_CONTROLCONNECTION_H
#define PLATFORM_HOST_CONTROL_CONTROLCONNECTION_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/host/control/AnswerSlot.h"
#include "platform/host/control/ControlBoard.h"
#include "platform/host/control/WakeEvent.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Reads only when the request before has been answered and the answer has been taken: so at most
/// one line and one answer are kept, however quick the client sends and however slow it reads.
class ControlConnection {
 public:
  /// Longest request, without its line feed. A longer one is refused, and the connection ends.
  static constexpr std::size_t kMaxLineBytes = 4096;

  /// Longest answer, with its line feed. In place of a longer one the client gets an error.
  static constexpr std::size_t kMaxAnswerBytes = std::size_t{4} << 20;

  /// `client` is non-blocking. `wakes` is raised when an answer from another thread is there.
  ControlConnection(support::UniqueFd client, ControlBoard& offers,
                    std::shared_ptr<const WakeEvent> wakes);

  [[nodiscard]] int Descriptor() const { return socket.Get(); }

  /// What poll(2) has to wait for; 0 while an answer is awaited, and where there is no need to
  /// wait.
  [[nodiscard]] short NeedsNow() const;

  /// Whether the next request is there and can be served without waiting.
  [[nodiscard]] bool HasRequest() const;

  /// Does what can be done now, but serves one request at most: whoever sends many at once does not
  /// keep others waiting for all of them. `ready` is what poll(2) tells. Does not block but for
  /// offers of the board. Throws std::bad_alloc: the connection is of no use then.
  void Serve(short ready);

  /// Sends what is there of an answer, as far as the client takes it at once. Serves nothing more.
  void Finish();

  /// The connection is of no use any more.
  void Abandon() { isFinished = true; }

  /// Whether the client is gone or has all that it will get.
  [[nodiscard]] bool IsFinished() const { return isFinished; }

 private:
  /// Takes bytes from the socket, up to one above the longest line.
  void Read();

  /// Begins the next request, if there is one.
  void ServeNextLine();

  /// Fetches the answer to the request under way, if it is there, and sends what the client takes
  /// at once.
  void SendAnswer();
  void TakeAnswer();
  void Send();

  [[nodiscard]] bool IsAwaitingAnswer() const { return pending != nullptr; }
  [[nodiscard]] bool HasOutput() const { return !output.empty(); }

  const support::UniqueFd socket;
  ControlBoard& board;
  const std::shared_ptr<const WakeEvent> wake;
  std::string input;
  std::string output;
  std::size_t sent = 0;  ///< of `output`
  std::shared_ptr<AnswerSlot> pending;
  bool isInputOver = false;  ///< the client sends no more, or nothing more counts
  bool isFinished = false;
};

}  // namespace platform_host

#endif
