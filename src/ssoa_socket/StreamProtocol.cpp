#include "ssoa_socket/StreamProtocol.h"

namespace ssoa_socket {
namespace {

using Communicator = std::shared_ptr<StreamCommunicatorIf>;

constexpr unsigned kBitsOfByte = 8;

template <typename Unsigned>
void Insert(std::vector<unsigned char>& message, Unsigned value) {
  for (std::size_t remaining = sizeof value; remaining > 0; --remaining) {
    message.push_back(static_cast<unsigned char>(value >> (kBitsOfByte * (remaining - 1))));
  }
}

template <typename Unsigned>
bool Read(const Communicator& communicator, Unsigned& value) {
  const std::vector<unsigned char> bytes = communicator->ReadNBytes(sizeof value);
  if (bytes.size() != sizeof value) return false;
  Unsigned number = 0;
  for (const unsigned char byte : bytes) {
    number = static_cast<Unsigned>((std::uint64_t{number} << kBitsOfByte) | byte);
  }
  value = number;
  return true;
}

}  // namespace

void StreamProtocol::InsertUint8(std::vector<unsigned char>& message, std::uint8_t value) const {
  Insert(message, value);
}

void StreamProtocol::InsertUint16(std::vector<unsigned char>& message, std::uint16_t value) const {
  Insert(message, value);
}

void StreamProtocol::InsertUint32(std::vector<unsigned char>& message, std::uint32_t value) const {
  Insert(message, value);
}

void StreamProtocol::InsertUint64(std::vector<unsigned char>& message, std::uint64_t value) const {
  Insert(message, value);
}

bool StreamProtocol::InsertShortString(std::vector<unsigned char>& message,
                                       const std::string& text) const {
  if (text.size() > kLongestShortString) return false;
  InsertUint8(message, static_cast<std::uint8_t>(text.size()));
  InsertStringWithoutSize(message, text);
  return true;
}

bool StreamProtocol::InsertString(std::vector<unsigned char>& message,
                                  const std::string& text) const {
  if (text.size() > kLongestString) return false;
  InsertUint16(message, static_cast<std::uint16_t>(text.size()));
  InsertStringWithoutSize(message, text);
  return true;
}

void StreamProtocol::InsertStringWithoutSize(std::vector<unsigned char>& message,
                                             const std::string& text) const {
  message.insert(message.end(), text.begin(), text.end());
}

bool StreamProtocol::ReadUint8(const Communicator& communicator, std::uint8_t& value) const {
  return Read(communicator, value);
}

bool StreamProtocol::ReadUint16(const Communicator& communicator, std::uint16_t& value) const {
  return Read(communicator, value);
}

bool StreamProtocol::ReadUint32(const Communicator& communicator, std::uint32_t& value) const {
  return Read(communicator, value);
}

bool StreamProtocol::ReadUint64(const Communicator& communicator, std::uint64_t& value) const {
  return Read(communicator, value);
}

bool StreamProtocol::ReadShortString(const Communicator& communicator, std::string& text) const {
  std::uint8_t size = 0;
  return ReadUint8(communicator, size) && ReadStringWithSize(communicator, text, size);
}

bool StreamProtocol::ReadString(const Communicator& communicator, std::string& text) const {
  std::uint16_t size = 0;
  return ReadUint16(communicator, size) && ReadStringWithSize(communicator, text, size);
}

bool StreamProtocol::ReadStringWithSize(const Communicator& communicator, std::string& text,
                                        unsigned long size) const {
  std::vector<unsigned char> bytes;
  if (size > 0) bytes = communicator->ReadNBytes(size);
  if (bytes.size() != size) return false;
  text.assign(bytes.begin(), bytes.end());
  return true;
}

}  // namespace ssoa_socket
