#include "platform/host/control/ControlConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace platform_host {
namespace {

constexpr const char* kLineTooLong =
    "{\"ok\":false,\"error\":\"the request is longer than 4096 bytes\"}\n";
constexpr const char* kAnswerTooLong =
    "{\"ok\":false,\"error\":\"the answer is longer than 4194304 bytes\"}\n";

bool IsForLater(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

ControlConnection::ControlConnection(support::UniqueFd client, ControlBoard& offers,
                                     std::shared_ptr<const WakeEvent> wakes)
    : socket(std::move(client)), board(offers), wake(std::move(wakes)) {}

short ControlConnection::NeedsNow() const {
  if (HasOutput()) return POLLOUT;
  return IsAwaitingAnswer() || isInputOver || HasRequest() ? 0 : POLLIN;
}

bool ControlConnection::HasRequest() const {
  return !isFinished && !IsAwaitingAnswer() && !HasOutput() &&
         input.find('\n') != std::string::npos;
}

void ControlConnection::Serve(short ready) {
  // Both directions are closed: nobody will read the answer.
  const bool isGone = (ready & POLLHUP) != 0 && IsAwaitingAnswer();
  if (isGone || (ready & (POLLERR | POLLNVAL)) != 0) {
    isFinished = true;
    return;
  }
  if (ready != 0 && NeedsNow() == POLLIN) Read();
  SendAnswer();
  ServeNextLine();
  SendAnswer();
  // The end is read only while no request is there and no answer is awaited.
  if (isInputOver && !HasOutput()) isFinished = true;
}

void ControlConnection::Finish() {
  SendAnswer();
}

void ControlConnection::Read() {
  std::array<char, kMaxLineBytes + 1> bytes{};
  const ssize_t count = ::recv(socket.Get(), bytes.data(), bytes.size() - input.size(), 0);
  if (count > 0) {
    input.append(bytes.data(), static_cast<std::size_t>(count));
  } else if (count == 0) {
    isInputOver = true;
  } else if (!IsForLater(errno)) {
    isFinished = true;
  }
}

void ControlConnection::ServeNextLine() {
  if (isFinished || IsAwaitingAnswer() || HasOutput()) return;
  const auto end = input.find('\n');
  if (end == std::string::npos) {
    if (input.size() <= kMaxLineBytes) return;
    input.clear();
    isInputOver = true;
    output = kLineTooLong;
    return;
  }
  const std::string line = input.substr(0, end);
  input.erase(0, end + 1);
  pending = std::make_shared<AnswerSlot>(wake);
  board.Serve(line,
              ControlReply([slot = pending](std::string answer) { slot->Put(std::move(answer)); }));
}

void ControlConnection::SendAnswer() {
  TakeAnswer();
  Send();
}

void ControlConnection::TakeAnswer() {
  auto answer = IsAwaitingAnswer() ? pending->Take() : std::nullopt;
  if (!answer) return;
  pending.reset();
  // There was no memory for one: the end of the connection tells the client.
  if (answer->empty()) isFinished = true;
  output = answer->size() < kMaxAnswerBytes ? std::move(*answer) + '\n' : kAnswerTooLong;
}

void ControlConnection::Send() {
  while (!isFinished && HasOutput()) {
    const ssize_t count =
        ::send(socket.Get(), output.data() + sent, output.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && IsForLater(errno)) return;
    if (count < 0) isFinished = true;
    sent += static_cast<std::size_t>(count < 0 ? 0 : count);
    if (sent < output.size()) continue;
    sent = 0;
    // Not clear(): a long answer's memory is not kept.
    std::string().swap(output);
  }
}

}  // namespace platform_host
