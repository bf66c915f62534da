#include "platform/host/lumo_connector/Services.h"

#include <gmock/gmock.h>

#include <vector>

#include "platform/host/config/ValueChecks.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kOperation = "Download";

/// A service whose token is in a file, and the log.
class TokenFile : public ::testing::Test {
 protected:
  TokenFile() { config.services[kOperation].tokenFile = path; }

  /// The answer when the file holds `text`.
  lumo_connector::LumoTokenResult TokenIn(const std::string& text) {
    tests::WriteText(path, text);
    return TokenOf(config, kOperation);
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/token";
  HostConfig config;
  const CapturedLog log;
};

TEST(Services, TokenInConfiguration_Given) {
  HostConfig config;
  config.services[kOperation].token = "secret";
  const auto result = TokenOf(config, kOperation);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.token, "secret");
}

TEST(Services, NoTokenConfigured_2AndTold) {
  const CapturedLog log;
  HostConfig config;
  config.services[kOperation].url = "http://h";
  EXPECT_EQ(TokenOf(config, kOperation).status, 2);
  EXPECT_EQ(TokenOf(config, "Other").status, 2);
  EXPECT_EQ(TokenOf(config, "").status, 2);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libLumoConnectorShared: no token is configured for Download",
                          "error: libLumoConnectorShared: no token is configured for Other",
                          "error: libLumoConnectorShared: no token is configured for "));
}

TEST(Services, UrlConfigured_GivenWithItsOperation) {
  HostConfig config;
  config.services[kOperation].url = "http://h/p";
  const auto result = UrlOf(config, kOperation);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.operationTypeId, kOperation);
  EXPECT_EQ(result.url, "http://h/p");
}

TEST(Services, NoUrlConfigured_2AndTold) {
  const CapturedLog log;
  HostConfig config;
  config.services[kOperation].token = "secret";
  for (const char* operation : {kOperation, "Other"}) {
    const auto result = UrlOf(config, operation);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.operationTypeId, operation);
    EXPECT_EQ(result.url, "");
  }
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libLumoConnectorShared: no URL is configured for Download",
                          "error: libLumoConnectorShared: no URL is configured for Other"));
}

TEST_F(TokenFile, LineBreakAtEnd_NotPartOfToken) {
  for (const char* end : {"", "\n", "\r\n", "\r"}) {
    const auto result = TokenIn(std::string("secret") + end);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.token, "secret");
  }
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(TokenFile, Changed_NewTokenAtTheNextCall) {
  EXPECT_EQ(TokenIn("first\n").token, "first");
  EXPECT_EQ(TokenIn("second\n").token, "second");
}

TEST_F(TokenFile, LongestToken_Given) {
  const std::string longest(kMaxTokenBytes, 'x');
  EXPECT_EQ(TokenIn(longest + "\r\n").token, longest);
}

TEST_F(TokenFile, NoToken_UnreadableAndNeverShown) {
  const std::string secret = "sEcReT";
  const std::vector<std::string> texts = {
      secret + "\n\n",     " " + secret,
      secret + " ",        secret + "\r\nX-Other: 1\r\n",
      secret + "\n\r",     secret + std::string("\0", 1),
      secret + "\xC3\xA4", secret + std::string(kMaxTokenBytes - 5, 'x')};
  for (const auto& text : texts) {
    const CapturedLog own;
    const auto result = TokenIn(text);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.token, "");
    EXPECT_THAT(own.Lines(),
                ElementsAre("error: libLumoConnectorShared: cannot read token " + path +
                            ": the file holds something other than 1 to 16384 visible "
                            "ASCII characters and a line break"));
  }
}

TEST_F(TokenFile, Empty_Unreadable) {
  for (const char* text : {"", "\n", "\r\n"}) {
    const CapturedLog own;
    EXPECT_EQ(TokenIn(text).status, 3);
    EXPECT_THAT(own.Lines(), ElementsAre("error: libLumoConnectorShared: cannot read token " +
                                         path + ": the file is empty"));
  }
}

TEST_F(TokenFile, Missing_Unreadable) {
  EXPECT_EQ(TokenOf(config, kOperation).status, 3);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: cannot read token " + path +
                                       ": No such file or directory"));
}

TEST_F(TokenFile, AboveBound_Unreadable) {
  EXPECT_EQ(TokenIn(std::string(kMaxTokenBytes + 3, 'x')).status, 3);
  EXPECT_THAT(log.Lines(), ElementsAre("error: libLumoConnectorShared: cannot read token " + path +
                                       ": File too large"));
}

}  // namespace
}  // namespace platform_host
