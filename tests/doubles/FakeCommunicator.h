/// A connection whose other side is a text. Belongs to one thread at a time, but for Disconnect and
/// IsOpen.
#ifndef TESTS_DOUBLES_FAKECOMMUNICATOR_H
#define TESTS_DOUBLES_FAKECOMMUNICATOR_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "ssoa_socket/StreamCommunicatorIf.h"

namespace tests {

/// Delivers the bytes of a text, then the end of the stream, and keeps what is written.
class FakeCommunicator : public ssoa_socket::StreamCommunicatorIf {
 public:
  explicit FakeCommunicator(std::string textToDeliver) : delivered(std::move(textToDeliver)) {}

  /// What was not read.
  [[nodiscard]] std::string Rest() const { return delivered.substr(position); }
  [[nodiscard]] const std::string& Written() const { return written; }
  [[nodiscard]] std::size_t ReadCalls() const { return readCalls; }

  void Disconnect() override { open = false; }
  [[nodiscard]] std::ptrdiff_t Read(unsigned char* buffer, unsigned long length) const override {
    const std::vector<unsigned char> bytes = ReadNBytes(length);
    std::copy(bytes.begin(), bytes.end(), buffer);
    return static_cast<std::ptrdiff_t>(bytes.size());
  }
  [[nodiscard]] std::vector<unsigned char> ReadNBytes(unsigned long count) const override {
    ++readCalls;
    const std::size_t size = open ? std::min(count, delivered.size() - position) : 0;
    const auto first = delivered.begin() + static_cast<std::ptrdiff_t>(position);
    position += size;
    return {first, first + static_cast<std::ptrdiff_t>(size)};
  }
  [[nodiscard]] std::ptrdiff_t Write(const unsigned char* data,
                                     unsigned long length) const override {
    written.append(data, data + length);
    return static_cast<std::ptrdiff_t>(length);
  }
  [[nodiscard]] std::ptrdiff_t Write(const std::vector<unsigned char>& data) const override {
    return Write(data.data(), data.size());
  }
  [[nodiscard]] int GetSocketHandle() override { return -1; }
  [[nodiscard]] int TakeOwnershipOfSocketHandle() override { return -1; }
  [[nodiscard]] int Poll(int /*timeoutMs*/) override { return open ? 1 : -1; }
  [[nodiscard]] int GetProcessCredentials(ucred* /*credentials*/) override { return -1; }
  [[nodiscard]] bool IsOpen() override { return open; }
  [[nodiscard]] bool DropTls() override { return true; }
  [[nodiscard]] std::string GetAlpnProtocol() override { return ""; }

 private:
  const std::string delivered;
  mutable std::size_t position = 0;
  mutable std::size_t readCalls = 0;
  mutable std::string written;
  std::atomic<bool> open{true};
};

}  // namespace tests

#endif
