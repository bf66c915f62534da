#include "tools/tsc/ContainerId.h"

#include <gmock/gmock.h>

namespace tsc {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ContainerId, Accepted) {
  for (const std::string& id : {std::string("a"), std::string("TSC 2026/1"),
                                std::string("\x7F\xC3\xBC"), std::string(100, 'x')}) {
    EXPECT_THAT(IdObjections(id), IsEmpty()) << id;
  }
}

TEST(ContainerId, Empty_Refused) {
  EXPECT_THAT(IdObjections(""), ElementsAre("empty"));
}

TEST(ContainerId, CharacterToEscape_Refused) {
  for (const std::string& id : {std::string("\""), std::string("\\"), std::string("a\n"),
                                std::string("\x1F"), std::string(1, '\0')}) {
    EXPECT_THAT(IdObjections(id), ElementsAre("has a character that JSON must escape")) << id;
  }
}

TEST(ContainerId, OneAboveTheBound_Refused) {
  EXPECT_THAT(IdObjections(std::string(101, 'x')), ElementsAre("more than 100 bytes"));
}

TEST(ContainerId, SeveralFaults_AllTold) {
  EXPECT_THAT(IdObjections(std::string(101, '"')),
              ElementsAre("has a character that JSON must escape", "more than 100 bytes"));
}

}  // namespace
}  // namespace tsc
