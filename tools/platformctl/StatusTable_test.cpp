#include "tools/platformctl/StatusTable.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace platformctl {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

/// The lines of a status with this part alone that tell of it.
std::string LinesOf(const std::string& name, const json& part) {
  const std::string with = FormatStatus(json{{name, part}});
  const auto begin = with.find(name);
  auto end = with.find('\n', begin) + 1;
  while (with.compare(end, 2, "  ") == 0) end = with.find('\n', end) + 1;
  return with.substr(begin, end - begin);
}

TEST(StatusTable, NothingTold_DashForEachPart) {
  EXPECT_EQ(FormatStatus(json::object()),
            "application  -\n"
            "component    -\n"
            "supervision  -\n"
            "session      -\n"
            "connection   -\n"
            "broker       -\n"
            "bundles      -\n");
}

TEST(StatusTable, Application_ItsState) {
  EXPECT_EQ(LinesOf("application", {{"state", "running"}}), "application  running\n");
}

TEST(StatusTable, Component_RequestedAndConfirmed) {
  const json part = {{"name", "TruststoreUpdateClient"},
                     {"requested", {{"state", "kPrepSD"}, {"sequence", 2}}},
                     {"confirmed", {{"state", "kOn"}, {"sequence", 1}}}};
  EXPECT_EQ(LinesOf("component", part),
            "component    TruststoreUpdateClient\n"
            "  requested               kPrepSD (2)\n"
            "  confirmed               kOn (1)\n");
}

TEST(StatusTable, ComponentWithoutRequests_Dashes) {
  EXPECT_EQ(LinesOf("component", {{"name", "C"}, {"requested", nullptr}}),
            "component    C\n"
            "  requested               -\n"
            "  confirmed               -\n");
}

TEST(StatusTable, Supervision_EachCheckpoint) {
  const json part = {{"instance", "phm/instance"},
                     {"checkpoints",
                      {{{"supervision_entity_id", 1},
                        {"checkpoint_id", 2},
                        {"count", 7},
                        {"age_ms", 412},
                        {"late", 0},
                        {"expected", {{"indications", 5}, {"cycle_ms", 5000}}},
                        {"verdict", "in time"}},
                       {{"supervision_entity_id", 1},
                        {"checkpoint_id", 3},
                        {"count", 0},
                        {"age_ms", nullptr},
                        {"late", 0},
                        {"expected", nullptr},
                        {"verdict", "not configured"}}}}};
  EXPECT_EQ(LinesOf("supervision", part),
            "supervision  phm/instance\n"
            "  checkpoint 1/2          in time: 7 reached, the last 412 ms ago, 0 late, 5 expected "
            "in 5000 ms\n"
            "  checkpoint 1/3          not configured: 0 reached, 0 late\n");
}

TEST(StatusTable, Session_NameAndNumber) {
  EXPECT_EQ(LinesOf("session", {{"status", 2}, {"name", "started"}}), "session      started (2)\n");
}

TEST(StatusTable, Connection_NamedAndWhetherHeld) {
  struct Case {
    json part;
    std::string text;
  };
  const std::vector<Case> cases = {
      {{{"state", 1}, {"held", false}}, "no connection (1)"},
      {{{"state", 2}, {"held", true}}, "connected (2), held"},
      {{{"state", 3}, {"held", false}}, "connected but degraded (3)"},
      {{{"state", 4}, {"held", true}}, "suspended (4), held"},
      {{{"state", 0}, {"held", false}}, "- (0)"},
      {{{"state", 5}, {"held", false}}, "- (5)"},
      {{{"state", -1}, {"held", false}}, "- (-1)"},
      {{{"state", "x"}}, "- (x)"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(LinesOf("connection", one.part), "connection   " + one.text + "\n");
  }
}

TEST(StatusTable, Broker_AddressAndTopics) {
  const json part = {
      {"address", "broker.example:1883"},
      {"connected", true},
      {"topics",
       {{{"topic", "a/b"}, {"state", "subscribed"}}, {{"topic", "c"}, {"state", "refused"}}}}};
  EXPECT_EQ(LinesOf("broker", part),
            "broker       broker.example:1883, connected\n"
            "  subscribed              a/b\n"
            "  refused                 c\n");
}

TEST(StatusTable, BrokerAway_NotConnected) {
  EXPECT_EQ(LinesOf("broker", {{"address", "b:1"}, {"connected", false}}),
            "broker       b:1, not connected\n");
}

TEST(StatusTable, NoBroker_Said) {
  EXPECT_EQ(LinesOf("broker", nullptr), "broker       none configured\n");
}

TEST(StatusTable, Bundles_EachWithItsCertificates) {
  const json part = {
      {{"name", "FLEET"}, {"from", "installed"}, {"certificates", 1}},
      {{"name", "a name longer than its column"}, {"from", "factory"}, {"certificates", 3}}};
  EXPECT_EQ(LinesOf("bundles", part),
            "bundles      2\n"
            "  FLEET                   1 certificate, installed\n"
            "  a name longer than its column 3 certificates, factory\n");
}

TEST(StatusTable, NoBundles_Zero) {
  EXPECT_EQ(LinesOf("bundles", json::array()), "bundles      0\n");
}

TEST(StatusTable, PartThatFailed_ItsError) {
  for (const char* name :
       {"application", "component", "supervision", "session", "connection", "broker", "bundles"}) {
    EXPECT_THAT(LinesOf(name, {{"error", "disk gone"}}), HasSubstr(" error: disk gone\n"));
  }
}

TEST(StatusTable, PartOfANewerProcess_ShownAsItIs) {
  EXPECT_EQ(LinesOf("fans", {{"speed", 3}}), "fans         {\"speed\":3}\n");
}

TEST(StatusTable, ControlCharactersOfOutsideText_Escaped) {
  EXPECT_EQ(LinesOf("application", {{"state", "a\n\x1B[2Jb\x7F"}}),
            "application  a\\x0a\\x1b[2Jb\\x7f\n");
  EXPECT_EQ(FormatStatus({{"x\ny", 1}}).find("x\ny"), std::string::npos);
}

TEST(StatusTable, PartsOfAnyShape_StillShown) {
  const std::vector<json> shapes = {nullptr,
                                    true,
                                    1,
                                    -1.5,
                                    "text",
                                    json::array(),
                                    json::object(),
                                    {1, "a", {{"b", nullptr}}},
                                    {{{"checkpoints", 1}}}};
  for (const char* name :
       {"application", "component", "supervision", "session", "connection", "broker", "bundles"}) {
    for (const auto& shape : shapes) {
      EXPECT_THAT(LinesOf(name, shape), HasSubstr(name)) << shape;
    }
  }
}

}  // namespace
}  // namespace platformctl
