#include "ssoa_socket/StreamProtocol.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/doubles/FakeCommunicator.h"

namespace ssoa_socket {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using tests::FakeCommunicator;
using Bytes = std::vector<unsigned char>;
using namespace std::string_literals;  // texts with zero bytes

const StreamProtocol kProtocol;

std::shared_ptr<FakeCommunicator> Stream(const std::string& bytes) {
  return std::make_shared<FakeCommunicator>(bytes);
}

TEST(StreamProtocolInsert, Integers_BigEndianAndAppended) {
  Bytes message;
  kProtocol.InsertUint8(message, 0x01);
  kProtocol.InsertUint16(message, 0x0203);
  kProtocol.InsertUint32(message, 0x04050607);
  kProtocol.InsertUint64(message, 0x08090a0b0c0d0e0f);
  EXPECT_THAT(message, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

TEST(StreamProtocolInsert, GreatestIntegers_AllOnes) {
  Bytes message;
  kProtocol.InsertUint8(message, UINT8_MAX);
  kProtocol.InsertUint16(message, UINT16_MAX);
  kProtocol.InsertUint32(message, UINT32_MAX);
  kProtocol.InsertUint64(message, UINT64_MAX);
  EXPECT_EQ(message, Bytes(15, 0xff));
}

TEST(StreamProtocolInsert, Texts_WithTheLengthThatWasAskedFor) {
  Bytes message;
  EXPECT_TRUE(kProtocol.InsertShortString(message, "a"));
  EXPECT_TRUE(kProtocol.InsertString(message, "b\0"s));
  kProtocol.InsertStringWithoutSize(message, "c");
  EXPECT_THAT(message, ElementsAre(1, 'a', 0, 2, 'b', 0, 'c'));
}

TEST(StreamProtocolInsert, EmptyTexts_TheirLengthAlone) {
  Bytes message;
  EXPECT_TRUE(kProtocol.InsertShortString(message, ""));
  EXPECT_TRUE(kProtocol.InsertString(message, ""));
  kProtocol.InsertStringWithoutSize(message, "");
  EXPECT_THAT(message, ElementsAre(0, 0, 0));
}

TEST(StreamProtocolInsert, LongestTexts_Taken) {
  Bytes shortMessage;
  EXPECT_TRUE(kProtocol.InsertShortString(shortMessage, std::string(255, 'x')));
  ASSERT_THAT(shortMessage, SizeIs(256));
  EXPECT_EQ(shortMessage[0], 0xff);
  Bytes message;
  EXPECT_TRUE(kProtocol.InsertString(message, std::string(65535, 'x')));
  ASSERT_THAT(message, SizeIs(65537));
  EXPECT_EQ(message[0], 0xff);
  EXPECT_EQ(message[1], 0xff);
}

TEST(StreamProtocolInsert, TextsOneLonger_RefusedAndNothingAppended) {
  Bytes message{7};
  EXPECT_FALSE(kProtocol.InsertShortString(message, std::string(256, 'x')));
  EXPECT_FALSE(kProtocol.InsertString(message, std::string(65536, 'x')));
  EXPECT_THAT(message, ElementsAre(7));
}

TEST(StreamProtocolRead, Integers_BigEndianAndNoByteMore) {
  const auto stream = Stream("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f rest");
  std::uint8_t first = 0;
  std::uint16_t second = 0;
  std::uint32_t third = 0;
  std::uint64_t fourth = 0;
  EXPECT_TRUE(kProtocol.ReadUint8(stream, first));
  EXPECT_TRUE(kProtocol.ReadUint16(stream, second));
  EXPECT_TRUE(kProtocol.ReadUint32(stream, third));
  EXPECT_TRUE(kProtocol.ReadUint64(stream, fourth));
  EXPECT_EQ(first, 0x01);
  EXPECT_EQ(second, 0x0203);
  EXPECT_EQ(third, 0x04050607U);
  EXPECT_EQ(fourth, 0x08090a0b0c0d0e0fU);
  EXPECT_EQ(stream->Rest(), " rest");
}

template <typename Value>
void ExpectRefused(const std::string& bytes,
                   bool (StreamProtocol::*read)(const std::shared_ptr<StreamCommunicatorIf>&,
                                                Value&) const) {
  SCOPED_TRACE(::testing::PrintToString(bytes) + ", " + std::to_string(sizeof(Value)) + " wanted");
  Value value = 42;
  EXPECT_FALSE((kProtocol.*read)(Stream(bytes), value));
  EXPECT_EQ(value, 42);
}

TEST(StreamProtocolRead, IntegersCutShort_RefusedAndTheValueStays) {
  ExpectRefused("", &StreamProtocol::ReadUint8);
  ExpectRefused("", &StreamProtocol::ReadUint16);
  ExpectRefused("\xff", &StreamProtocol::ReadUint16);
  ExpectRefused("", &StreamProtocol::ReadUint32);
  ExpectRefused("\xff\xff\xff", &StreamProtocol::ReadUint32);
  ExpectRefused("", &StreamProtocol::ReadUint64);
  ExpectRefused("\xff\xff\xff\xff\xff\xff\xff", &StreamProtocol::ReadUint64);
}

struct TextCase {
  std::string bytes;
  std::string text;
};

TEST(StreamProtocolRead, Strings_Accepted) {
  const std::vector<TextCase> cases{
      {"\0\0"s, ""},
      {"\0\1a"s, "a"},
      {"\0\2\0\n"s, "\0\n"s},
      {"\1\0"s + std::string(256, 'x'), std::string(256, 'x')},
      {"\xff\xff" + std::string(65535, 'x'), std::string(65535, 'x')},
  };
  for (const TextCase& item : cases) {
    SCOPED_TRACE(item.bytes.substr(0, 10));
    const auto stream = Stream(item.bytes + "rest");
    std::string text = "before";
    EXPECT_TRUE(kProtocol.ReadString(stream, text));
    EXPECT_EQ(text, item.text);
    EXPECT_EQ(stream->Rest(), "rest");
  }
}

TEST(StreamProtocolRead, Strings_Refused) {
  const std::vector<std::string> cases{
      "",         "\0"s,
      "\xff",     "\0\1"s,
      "\0\2a"s,   "\1\0"s + std::string(255, 'x'),
      "\xff\xff", "\xff\xff" + std::string(65534, 'x'),
  };
  for (const std::string& bytes : cases) {
    SCOPED_TRACE(::testing::PrintToString(bytes.substr(0, 10)));
    std::string text = "before";
    EXPECT_FALSE(kProtocol.ReadString(Stream(bytes), text));
    EXPECT_EQ(text, "before");
  }
}

TEST(StreamProtocolRead, ShortStrings_Accepted) {
  const std::vector<TextCase> cases{
      {"\0"s, ""}, {"\1a", "a"}, {"\xff" + std::string(255, 'x'), std::string(255, 'x')}};
  for (const TextCase& item : cases) {
    SCOPED_TRACE(item.bytes.substr(0, 10));
    const auto stream = Stream(item.bytes + "rest");
    std::string text = "before";
    EXPECT_TRUE(kProtocol.ReadShortString(stream, text));
    EXPECT_EQ(text, item.text);
    EXPECT_EQ(stream->Rest(), "rest");
  }
}

TEST(StreamProtocolRead, ShortStrings_Refused) {
  for (const std::string& bytes : {""s, "\1"s, "\2a"s, "\xff" + std::string(254, 'x')}) {
    SCOPED_TRACE(::testing::PrintToString(bytes.substr(0, 10)));
    std::string text = "before";
    EXPECT_FALSE(kProtocol.ReadShortString(Stream(bytes), text));
    EXPECT_EQ(text, "before");
  }
}

TEST(StreamProtocolRead, EmptyText_NothingMoreIsRead) {
  const auto stream = Stream("\0\0"s);
  std::string text = "before";
  EXPECT_TRUE(kProtocol.ReadString(stream, text));
  EXPECT_EQ(stream->ReadCalls(), 1U) << "the length, and no more";
}

TEST(StreamProtocolRead, TextOfKnownSize_ExactlyThat) {
  const auto stream = Stream("abcdef");
  std::string text = "before";
  EXPECT_TRUE(kProtocol.ReadStringWithSize(stream, text, 4));
  EXPECT_EQ(text, "abcd");
  EXPECT_FALSE(kProtocol.ReadStringWithSize(stream, text, 3));
  EXPECT_EQ(text, "abcd");
  EXPECT_TRUE(kProtocol.ReadStringWithSize(stream, text, 0));
  EXPECT_EQ(text, "");
}

TEST(StreamProtocolRead, WhatWasInserted_ComesBack) {
  Bytes message;
  ASSERT_TRUE(kProtocol.InsertString(message, "id\n\xff"));
  kProtocol.InsertUint32(message, 0xdeadbeef);
  const auto stream = Stream({message.begin(), message.end()});
  std::string text;
  std::uint32_t number = 0;
  EXPECT_TRUE(kProtocol.ReadString(stream, text));
  EXPECT_TRUE(kProtocol.ReadUint32(stream, number));
  EXPECT_EQ(text, "id\n\xff");
  EXPECT_EQ(number, 0xdeadbeef);
}

}  // namespace
}  // namespace ssoa_socket
