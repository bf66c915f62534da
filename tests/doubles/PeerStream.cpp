#include "tests/doubles/PeerStream.h"

#include <linux/sockios.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace tests {
namespace {

constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::string_view kLengthName = "\r\nContent-Length: ";
constexpr std::string_view kExpect = "\r\nExpect: 100-continue";

std::size_t BodyLength(const std::string& header) {
  if (header.find(kExpect) != std::string::npos) return 0;
  const auto name = header.find(kLengthName);
  if (name == std::string::npos) return 0;
  return std::strtoul(header.c_str() + name + kLengthName.size(), nullptr, 10);
}

}  // namespace

std::thread StartThread(const char* name, const std::function<void()>& action) {
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread([name, action] {
    ::pthread_setname_np(::pthread_self(), name);
    action();
  });
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

bool PeerStream::ReadMore(std::string& bytes, std::size_t limit) {
  if (!stream.IsOpen()) return false;
  std::array<char, 65536> piece;
  if (!WaitForBytes(kDeadline)) return false;
  const ssize_t count = ::read(stream.Get(), piece.data(), std::min(limit, piece.size()));
  if (count <= 0) return false;
  bytes.append(piece.data(), static_cast<std::size_t>(count));
  return true;
}

std::string PeerStream::ReadRequest() {
  std::string request;
  while (request.find(kHeaderEnd) == std::string::npos) {
    if (!ReadMore(request, 1)) break;
  }
  request += ReadBytes(BodyLength(request));
  const support::MutexLock lock(mutex);
  requests.push_back(request);
  return request;
}

std::string PeerStream::ReadBytes(std::size_t count) {
  std::string bytes;
  while (bytes.size() < count && ReadMore(bytes, count - bytes.size())) {
  }
  return bytes;
}

bool PeerStream::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!stream.IsOpen()) return false;
    const ssize_t count = ::send(stream.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool PeerStream::WaitForBytes(std::chrono::milliseconds time) {
  pollfd waiting{stream.Get(), POLLIN, 0};
  return ::poll(&waiting, 1, static_cast<int>(time.count())) > 0;
}

bool PeerStream::WaitUntilRead() {
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  for (int unread = 1; unread > 0; std::this_thread::yield()) {
    if (!stream.IsOpen() || ::ioctl(stream.Get(), SIOCOUTQ, &unread) != 0) return false;
    if (std::chrono::steady_clock::now() > deadline) return false;
  }
  return true;
}

bool PeerStream::SendInPieces(std::string_view bytes, std::size_t size) {
  for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) {
    if (!Send(bytes.substr(0, size)) || !WaitUntilRead()) return false;
  }
  return true;
}

void PeerStream::SendSlowly(std::string_view bytes, std::chrono::milliseconds pause) {
  for (; !bytes.empty() && Send(bytes.substr(0, 1)); bytes.remove_prefix(1)) {
    if (WaitForBytes(pause)) return;  // the client has closed: it sends nothing more
  }
}

void PeerStream::SendForever(std::string_view bytes) {
  while (Send(bytes)) {
  }
}

void PeerStream::CloseWriting() {
  if (stream.IsOpen()) ::shutdown(stream.Get(), SHUT_WR);
}

void PeerStream::Close() {
  const support::MutexLock lock(mutex);
  if (stream.IsOpen()) static_cast<void>(stream.Close());
}

void PeerStream::Reset() {
  const linger atOnce{1, 0};
  if (stream.IsOpen()) ::setsockopt(stream.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Close();
}

void PeerStream::WaitForClose() {
  std::string thrownAway;
  while (ReadMore(thrownAway, SIZE_MAX)) thrownAway.clear();
}

void PeerStream::WaitForHangUp() {
  pollfd waiting{stream.Get(), POLLRDHUP, 0};
  ::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(kDeadline).count()));
}

void PeerStream::Interrupt() {
  const support::MutexLock lock(mutex);
  if (stream.IsOpen()) ::shutdown(stream.Get(), SHUT_RDWR);
}

std::vector<std::string> PeerStream::Requests() const {
  const support::MutexLock lock(mutex);
  return requests;
}

ScriptedPeer::ScriptedPeer(support::UniqueFd descriptor, PeerScript peerScript)
    : stream(std::move(descriptor)),
      script(std::move(peerScript)),
      thread(StartThread("ScriptedPeer", [this] {
        script(stream);
        stream.Close();
      })) {}

ScriptedPeer::~ScriptedPeer() {
  Interrupt();
  WaitForEnd();
}

void ScriptedPeer::WaitForEnd() {
  if (thread.joinable()) thread.join();
}

PeerScript Answer(std::string bytes) {
  return [answer = std::move(bytes)](PeerStream& peer) {
    peer.ReadRequest();
    peer.Send(answer);
  };
}

std::string HttpResponse(const std::string& status, const std::string& body) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

}  // namespace tests
