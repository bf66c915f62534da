#include "tools/platformctl/Question.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/host/control/ControlConnection.h"
#include "platform/host/control/UnixAddress.h"
#include "support/UniqueFd.h"

namespace platformctl {
namespace {

using nlohmann::json;
using platform_host::Error;
using platform_host::Result;
using platform_host::UnixAddress;
using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kMaxAnswerBytes = platform_host::ControlConnection::kMaxAnswerBytes;

timeval TimevalOf(milliseconds duration) {
  const auto whole = duration_cast<std::chrono::seconds>(duration);
  return {static_cast<time_t>(whole.count()),
          static_cast<suseconds_t>(microseconds(duration - whole).count())};
}

/// What `line` holds; discarded when it is no JSON or nested too deeply.
json Parse(const std::string& line) {
  bool isTooDeep = false;
  const auto keep = [&isTooDeep](int depth, json::parse_event_t event, json& /*parsed*/) {
    const bool isStart =
        event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
    isTooDeep = isTooDeep || (isStart && depth >= kMaxAnswerDepth);
    return !isTooDeep;
  };
  json answer = json::parse(line, keep, false);
  return isTooDeep ? json(json::value_t::discarded) : answer;
}

/// One question under way. Each step returns why it failed, or none.
class Conversation {
 public:
  Conversation(const std::string& socketPath, const Question& asked)
      : path(socketPath),
        question(asked),
        deadline(steady_clock::now() + asked.patience),
        socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}

  std::optional<Error> Connect() const {
    // Where too many wait to be accepted, connecting blocks: as long as sending may.
    const timeval limit = TimevalOf(question.patience);
    const UnixAddress address(path);
    if (socket.IsOpen() &&
        ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0 &&
        ::connect(socket.Get(), address.Get(), UnixAddress::Size()) == 0) {
      return std::nullopt;
    }
    const int error = errno;
    if (error == EAGAIN) return Error(question.whenLate);
    const bool isNobodyThere = error == ECONNREFUSED || error == ENOENT || error == ENOTDIR;
    return Error::OfErrno(error).WithContext(
        (isNobodyThere ? "no process serves " : "cannot connect to ") + path);
  }

  std::optional<Error> Send() const {
    const std::string line = question.request.dump() + '\n';
    std::string_view rest = line;
    while (!rest.empty()) {
      const ssize_t count = ::send(socket.Get(), rest.data(), rest.size(), MSG_NOSIGNAL);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errno == EAGAIN ? Error(question.whenLate) : Ended();
      rest.remove_prefix(static_cast<std::size_t>(count));
    }
    return std::nullopt;
  }

  /// Takes the answer's line into `line`, without its end.
  std::optional<Error> Receive(std::string& line) const {
    std::array<char, 65536> bytes{};
    while (line.find('\n') == std::string::npos) {
      if (line.size() >= kMaxAnswerBytes) return NoAnswer();
      if (!WaitForBytes()) return Error(question.whenLate);
      const std::size_t room = std::min(bytes.size(), kMaxAnswerBytes - line.size());
      const ssize_t count = ::recv(socket.Get(), bytes.data(), room, MSG_DONTWAIT);
      if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (count <= 0) return Ended();
      line.append(bytes.data(), static_cast<std::size_t>(count));
    }
    line.erase(line.find('\n'));
    return std::nullopt;
  }

  [[nodiscard]] Result<json> Understand(const std::string& line) const {
    json answer = Parse(line);
    const auto isOk = answer.is_object() ? answer.find("ok") : answer.end();
    if (!answer.is_object() || isOk == answer.end() || !isOk->is_boolean()) return NoAnswer();
    if (isOk->get<bool>()) return answer;
    const auto error = answer.find("error");
    if (error == answer.end() || !error->is_string()) return NoAnswer();
    return Error(error->get<std::string>());
  }

 private:
  [[nodiscard]] Error NoAnswer() const { return Error(path + ": what it answers is no answer"); }

  [[nodiscard]] Error Ended() const {
    return Error(path + ": closed without an answer: the process has ended or serves too many");
  }

  /// Returns false when the patience is over.
  [[nodiscard]] bool WaitForBytes() const {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (left <= milliseconds(0)) return false;
    pollfd wait{socket.Get(), POLLIN, 0};
    const int count = ::poll(&wait, 1, static_cast<int>(left.count()));
    return count > 0 || (count < 0 && errno == EINTR);
  }

  const std::string& path;
  const Question& question;
  const steady_clock::time_point deadline;
  const support::UniqueFd socket;
};

}  // namespace

Result<json> Ask(const std::string& path, const Question& question) {
  const Conversation conversation(path, question);
  std::string answer;
  auto failure = conversation.Connect();
  if (!failure) failure = conversation.Send();
  if (!failure) failure = conversation.Receive(answer);
  if (failure) return *std::move(failure);
  return conversation.Understand(answer);
}

}  // namespace platformctl
