#include "TruststoreUpdateClient/Protobuffers.h"

#include <gmock/gmock.h>

#include "platform/host/csc_logging/CapturedLog.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

class ProtobuffersTest : public ::testing::Test {
 protected:
  std::string IdOf(const std::string& payload) {
    std::string id = "before";
    Protobuffers().ParseMqttJobRequest(id, payload);
    return id;
  }

  platform_host::CapturedLog log;
};

// A length-delimited field: tag, length, bytes.
std::string Field(char tag, const std::string& bytes) {
  return std::string{tag, static_cast<char>(bytes.size())} + bytes;
}

struct AcceptedJob {
  const char* what;
  std::string payload;
  std::string id;
};

TEST_F(ProtobuffersTest, Job_GivesItsContainerId) {
  const AcceptedJob jobs[] = {
      {"an id", Field('\x0A', "container-2"), "container-2"},
      {"nothing", "", ""},
      {"an empty id", Field('\x0A', ""), ""},
      {"an id beyond ASCII", Field('\x0A', "\xC3\xA4"), "\xC3\xA4"},
      {"an id with a NUL", Field('\x0A', "a\0b"s), "a\0b"s},
      {"two ids: the last counts", Field('\x0A', "a") + Field('\x0A', "b"), "b"},
      {"an unknown text field", Field('\x7A', "x") + Field('\x0A', "a"), "a"},
      {"an unknown number", "\x10\x05"s + Field('\x0A', "a"), "a"},
      {"an unknown group", "\x1B\x1C"s + Field('\x0A', "a"), "a"},
      {"the id as a number is another field", "\x08\x05", ""},
  };
  for (const AcceptedJob& job : jobs) EXPECT_EQ(job.id, IdOf(job.payload)) << job.what;
  EXPECT_THAT(log.Lines(), IsEmpty());
}

struct RefusedJob {
  const char* what;
  std::string payload;
};

std::string Groups(std::size_t depth) {
  return std::string(depth, '\x1B') + std::string(depth, '\x1C');
}

TEST_F(ProtobuffersTest, PayloadThatIsNoJob_IsALineAndAnEmptyId) {
  const RefusedJob jobs[] = {
      {"a tag alone", "\x0A"},
      {"a truncated text", "\x0A\x05"s + "abc"},
      {"a length beyond any memory", "\x0A\xFF\xFF\xFF\xFF\x0F"s + "abc"},
      {"a negative length", "\x0A\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01"},
      {"a length that does not end", "\x0A" + std::string(11, '\xFF')},
      {"field number zero", "\0"s},
      {"wire type six", "\x0E"},
      {"the end of a group that none began", "\x0C"},
      {"a group that does not end", "\x1B"},
      {"an id that is no UTF-8", Field('\x0A', "\xC3")},
      {"an id with a surrogate", Field('\x0A', "\xED\xA0\x80")},
      {"JSON", "{\"container_id\": \"a\"}"},
      {"groups nested too deep", Groups(101)},
      {"groups nested far too deep", Groups(1'000'000)},
  };
  for (const RefusedJob& job : jobs) {
    log.Clear();
    EXPECT_EQ("", IdOf(job.payload)) << job.what;
    EXPECT_THAT(log.Lines(), ElementsAre("info: Error in Parsing!")) << job.what;
  }
}

TEST_F(ProtobuffersTest, GroupsAtTheLimitOfDepth_AreSkipped) {
  EXPECT_EQ("a", IdOf(Groups(100) + Field('\x0A', "a")));
}

TEST_F(ProtobuffersTest, PayloadThatIsNoJob_WritesNothingOnStandardError) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ("", IdOf(Field('\x0A', "\xC3")));
  EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
}

}  // namespace
}  // namespace truststore_update_client
