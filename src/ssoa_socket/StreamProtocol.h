/// The fields of messages on a stream: big-endian integers, and texts that may follow their length.
/// Used by the TLS alert client. No state: any thread.
#ifndef SSOA_SOCKET_STREAMPROTOCOL_H
#define SSOA_SOCKET_STREAMPROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ssoa_socket/StreamCommunicatorIf.h"

namespace ssoa_socket {

/// Texts are bytes of any value. Nothing is thrown but std::bad_alloc, and what the communicator
/// throws.
class StreamProtocol {
 public:
  /// Bytes of the longest text with a length of one byte, and with one of two.
  static constexpr std::size_t kLongestShortString = 255;
  static constexpr std::size_t kLongestString = 65535;

  /// Each appends the bytes of `value` to `message`.
  void InsertUint8(std::vector<unsigned char>& message, std::uint8_t value) const;
  void InsertUint16(std::vector<unsigned char>& message, std::uint16_t value) const;
  void InsertUint32(std::vector<unsigned char>& message, std::uint32_t value) const;
  void InsertUint64(std::vector<unsigned char>& message, std::uint64_t value) const;

  /// Appends a length of one byte and `text`. Returns false, with `message` as it was, when `text`
  /// is longer than kLongestShortString.
  [[nodiscard]] bool InsertShortString(std::vector<unsigned char>& message,
                                       const std::string& text) const;

  /// Appends a length of two bytes and `text`. Returns false, with `message` as it was, when `text`
  /// is longer than kLongestString.
  [[nodiscard]] bool InsertString(std::vector<unsigned char>& message,
                                  const std::string& text) const;

  /// Appends `text` alone.
  void InsertStringWithoutSize(std::vector<unsigned char>& message, const std::string& text) const;

  /// Each waits for the bytes of one integer. Returns true when all of them came; otherwise `value`
  /// is as it was. REQUIRES, as everything below: `communicator` is not empty.
  [[nodiscard]] bool ReadUint8(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                               std::uint8_t& value) const;
  [[nodiscard]] bool ReadUint16(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                                std::uint16_t& value) const;
  [[nodiscard]] bool ReadUint32(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                                std::uint32_t& value) const;
  [[nodiscard]] bool ReadUint64(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                                std::uint64_t& value) const;

  /// Each waits for a length, of one byte or of two, and a text of that length. Returns true when
  /// all of both came; otherwise `text` is as it was.
  [[nodiscard]] bool ReadShortString(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                                     std::string& text) const;
  [[nodiscard]] bool ReadString(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                                std::string& text) const;

  /// Waits for a text of `size` bytes; for an empty one nothing is read. Returns as ReadString
  /// does.
  [[nodiscard]] bool ReadStringWithSize(const std::shared_ptr<StreamCommunicatorIf>& communicator,
                                        std::string& text, unsigned long size) const;
};

}  // namespace ssoa_socket

#endif
