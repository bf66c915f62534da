/// The answer that somebody at the control socket waits for. Any thread.
#ifndef PLATFORM_HOST_CONTROL_CONTROLREPLY_H
#define PLATFORM_HOST_CONTROL_CONTROLREPLY_H

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace platform_host {

/// A handle: copies answer the same request, and the first answer counts. When the last of them
/// ends without an answer, the request is answered with the error "the process is ending". Whoever
/// asked may be gone by then; that is nobody's error.
class ControlReply {
 public:
  /// Takes the answer's line without its end, on the thread that answers; an empty one when there
  /// was no memory for the answer. Called once. Must not throw or block.
  using Deliver = std::function<void(std::string line)>;

  /// Throws std::bad_alloc.
  explicit ControlReply(Deliver deliver);

  /// Answers with "ok": true and the members of `values`: an object, or null for none. What is no
  /// UTF-8 in its texts is replaced. Does not block.
  void Answer(const nlohmann::json& values) const noexcept;

  /// Answers with "ok": false and this text as "error". Does not block.
  void Refuse(const std::string& error) const noexcept;

 private:
  class Pending;
  std::shared_ptr<Pending> pending;
};

}  // namespace platform_host

#endif
