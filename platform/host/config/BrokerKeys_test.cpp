#include "platform/host/config/BrokerKeys.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace platform_host {
namespace {

constexpr const char* kNeeded = "[mqtt]\nhost = \"broker\"\nclient_id = \"unit\"\n";

std::string FailureOf(const std::string& text) {
  const auto result = HostConfig::Parse(text, "host.toml");
  return result.Ok() ? "accepted: " + text : result.Failure().Text();
}

BrokerConfig MustParse(const std::string& text) {
  const auto result = HostConfig::Parse(text, "host.toml");
  EXPECT_TRUE(result.Ok()) << text << (result.Ok() ? "" : result.Failure().Text());
  return result.Ok() && result.Value().broker ? *result.Value().broker : BrokerConfig{};
}

TEST(BrokerKeys, NoTable_NoBroker) {
  const auto result = HostConfig::Parse("", "host.toml");
  ASSERT_TRUE(result.Ok());
  EXPECT_FALSE(result.Value().broker);
}

TEST(BrokerKeys, OnlyWhatIsNeeded_DefaultsForTheRest) {
  const BrokerConfig broker = MustParse(kNeeded);
  EXPECT_EQ(broker.host, "broker");
  EXPECT_EQ(broker.port, 1883);
  EXPECT_EQ(broker.clientId, "unit");
  EXPECT_EQ(broker.keepAlive, std::chrono::seconds(60));
  EXPECT_EQ(broker.caFile, "");
  EXPECT_EQ(broker.username, "");
}

TEST(BrokerKeys, EveryKey_Taken) {
  const BrokerConfig broker = MustParse(
      "[mqtt]\nhost = \"10.0.0.1\"\nport = 8883\nclient_id = \"unit 1\"\nkeep_alive_s = 5\n"
      "ca_file = \"/ca\"\ncert_file = \"/cert\"\nkey_file = \"/key\"\nusername = \"u\"\n"
      "password_file = \"/password\"\n");
  EXPECT_EQ(broker.host, "10.0.0.1");
  EXPECT_EQ(broker.port, 8883);
  EXPECT_EQ(broker.clientId, "unit 1");
  EXPECT_EQ(broker.keepAlive, std::chrono::seconds(5));
  EXPECT_EQ(broker.caFile, "/ca");
  EXPECT_EQ(broker.certFile, "/cert");
  EXPECT_EQ(broker.keyFile, "/key");
  EXPECT_EQ(broker.username, "u");
  EXPECT_EQ(broker.passwordFile, "/password");
}

TEST(BrokerKeys, NumberAtItsBounds_Taken) {
  EXPECT_EQ(MustParse(std::string(kNeeded) + "port = 1\n").port, 1);
  EXPECT_EQ(MustParse(std::string(kNeeded) + "port = 65535\n").port, 65535);
  EXPECT_EQ(MustParse(std::string(kNeeded) + "keep_alive_s = 65535\n").keepAlive,
            std::chrono::seconds(65535));
}

TEST(BrokerKeys, UnusableValue_FileLineAndKeyNamed) {
  struct Case {
    std::string line;
    std::string failure;
  };
  const std::string ports = "mqtt.port: must be from 1 to 65535";
  const std::string keepAlives = "mqtt.keep_alive_s: must be from 5 to 65535";
  const std::vector<Case> cases = {
      {"port = 0", ports},
      {"port = -1", ports},
      {"port = 65536", ports},
      {"port = 9223372036854775807", ports},
      {"keep_alive_s = 4", keepAlives},
      {"keep_alive_s = 65536", keepAlives},
      {"host = \"\"", "mqtt.host: must not be empty"},
      {"host = \"a b\"", "mqtt.host: must not contain blanks"},
      {"host = \"a\\u0000\"", "mqtt.host: must not contain control characters"},
      {"host = \"a\\n\"", "mqtt.host: must not contain control characters"},
      {"client_id = \"\"", "mqtt.client_id: must not be empty"},
      {"client_id = \"\\u007F\"", "mqtt.client_id: must not contain control characters"},
      {"username = \"\"", "mqtt.username: must not be empty"},
      {"username = \"a\\u0000\"", "mqtt.username: must not contain control characters"},
      {"ca_file = \"ca\"", "mqtt.ca_file: must be an absolute path"},
      {"ca_file = \"\"", "mqtt.ca_file: must be an absolute path"},
      {"cert_file = \"c\"", "mqtt.cert_file: must be an absolute path"},
      {"key_file = \"/a\\u0000b\"", "mqtt.key_file: must be an absolute path"},
      {"password_file = \"p\"", "mqtt.password_file: must be an absolute path"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(FailureOf("[mqtt]\n" + one.line + "\n"), "host.toml:2: " + one.failure);
  }
}

TEST(BrokerKeys, KeysThatDoNotFit_KeyToPutRightNamed) {
  struct Case {
    std::string text;
    std::string failure;
  };
  const std::string needed = kNeeded;
  const std::vector<Case> cases = {
      {"\n[mqtt]\n", "host.toml:2: mqtt.host: is missing"},
      {"\n[mqtt]\nhost = \"b\"\n", "host.toml:2: mqtt.client_id: is missing"},
      {needed + "key_file = \"/k\"\n", "host.toml:4: mqtt.key_file: needs cert_file"},
      {needed + "ca_file = \"/a\"\ncert_file = \"/c\"\n",
       "host.toml:5: mqtt.cert_file: needs key_file"},
      {needed + "cert_file = \"/c\"\nkey_file = \"/k\"\n",
       "host.toml:4: mqtt.cert_file: needs ca_file"},
      {needed + "password_file = \"/p\"\n", "host.toml:4: mqtt.password_file: needs username"},
  };
  for (const auto& one : cases) EXPECT_EQ(FailureOf(one.text), one.failure);
}

}  // namespace
}  // namespace platform_host
