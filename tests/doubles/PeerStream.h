/// The far end of a stream as a test plays it: a server that answers, errs or misbehaves by script.
#ifndef TESTS_DOUBLES_PEERSTREAM_H
#define TESTS_DOUBLES_PEERSTREAM_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace tests {

/// The operations of a script on its stream: a Unix or TCP socket. Every wait ends after kDeadline,
/// so that a fault is a failed test and no hang. Belongs to the script's thread; Interrupt and
/// Requests are for any.
class PeerStream {
 public:
  static constexpr std::chrono::seconds kDeadline{30};

  explicit PeerStream(support::UniqueFd descriptor) : stream(std::move(descriptor)) {}

  /// Reads one HTTP request: its header, and as many bytes as its Content-Length tells unless it
  /// waits for an interim answer (Expect: 100-continue). Returns what came, less when the client
  /// went away.
  std::string ReadRequest();

  /// Reads `count` bytes, fewer when the client goes away.
  std::string ReadBytes(std::size_t count);

  /// Sends all of `bytes`. Returns false when the client has gone.
  bool Send(std::string_view bytes);

  /// Sends pieces of `size` bytes, each after the client has read the one before (Unix sockets;
  /// over TCP: after its system has it). Returns false when the client has gone.
  bool SendInPieces(std::string_view bytes, std::size_t size);

  /// Sends byte after byte with a pause between until the client has gone.
  void SendSlowly(std::string_view bytes, std::chrono::milliseconds pause);

  /// Sends `bytes` again and again until the client has gone.
  void SendForever(std::string_view bytes);

  /// Nothing more comes; the client may still send.
  void CloseWriting();

  /// Ends the stream.
  void Close() EXCLUDES(mutex);

  /// Ends the stream by a reset: the client's next read fails. A Unix socket resets only while it
  /// holds something unread.
  void Reset() EXCLUDES(mutex);

  /// Waits until the client has closed its end; what it sends until then is thrown away.
  void WaitForClose();

  /// As WaitForClose, but reads nothing.
  void WaitForHangUp();

  /// Ends every wait of the script, now and later.
  void Interrupt() EXCLUDES(mutex);

  /// What ReadRequest has returned so far, oldest first.
  [[nodiscard]] std::vector<std::string> Requests() const EXCLUDES(mutex);

 private:
  /// Reads at most `limit` bytes onto the end of `bytes`. Returns false at the end of the stream.
  bool ReadMore(std::string& bytes, std::size_t limit);
  bool WaitUntilRead();

  /// Waits until there is something to read, or for `time`.
  bool WaitForBytes(std::chrono::milliseconds time);

  mutable support::Mutex mutex;  ///< held while the descriptor is closed or shut down, too
  support::UniqueFd stream;      ///< changed by the script's thread only, under the mutex
  std::vector<std::string> requests GUARDED_BY(mutex);
};

/// A thread called `name` that runs `action` and gets no signal of the process.
[[nodiscard]] std::thread StartThread(const char* name, const std::function<void()>& action);

/// What a peer does with its stream; whatever it leaves open is closed when it returns.
using PeerScript = std::function<void(PeerStream&)>;

/// A script on a thread of its own.
class ScriptedPeer {
 public:
  ScriptedPeer(support::UniqueFd descriptor, PeerScript peerScript);

  /// Interrupts the script and waits for its end.
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  /// Any thread.
  void Interrupt() { stream.Interrupt(); }
  [[nodiscard]] std::vector<std::string> Requests() const { return stream.Requests(); }

  /// Waits for the end of the script. For one thread.
  void WaitForEnd();

 private:
  PeerStream stream;
  PeerScript script;
  std::thread thread;  ///< last: it uses the members above
};

/// Reads one request, answers `bytes` and closes.
[[nodiscard]] PeerScript Answer(std::string bytes);

/// A response of `status` ("200 OK") with `body` and its length.
[[nodiscard]] std::string HttpResponse(const std::string& status, const std::string& body);

}  // namespace tests

#endif
