#include "platform/host/config/ServiceKeys.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "platform/host/config/ValueChecks.h"

namespace platform_host {
namespace {

std::string FailureOf(const std::string& text) {
  const auto result = HostConfig::Parse(text, "host.toml");
  return result.Ok() ? "accepted: " + text : result.Failure().Text();
}

ServiceConfig MustParse(const std::string& keys) {
  const auto result = HostConfig::Parse("[service.\"A.B\"]\n" + keys, "host.toml");
  EXPECT_TRUE(result.Ok()) << keys << (result.Ok() ? "" : result.Failure().Text());
  return result.Ok() ? result.Value().services.at("A.B") : ServiceConfig{};
}

TEST(ServiceKeys, EveryKey_Taken) {
  const ServiceConfig service = MustParse(
      "url = \"https://host.example/a\"\ntoken_file = \"/token\"\nca_file = \"/ca\"\n"
      "cert_file = \"/cert\"\nkey_file = \"/key\"\n");
  EXPECT_EQ(service.url, "https://host.example/a");
  EXPECT_EQ(service.tokenFile, "/token");
  EXPECT_EQ(service.token, std::nullopt);
  EXPECT_EQ(service.caFile, "/ca");
  EXPECT_EQ(service.certFile, "/cert");
  EXPECT_EQ(service.keyFile, "/key");
}

TEST(ServiceKeys, TokenAndBundle_Taken) {
  const ServiceConfig service = MustParse("url = \"https://h\"\ntoken = \"t\"\nbundle = \"A B\"\n");
  EXPECT_EQ(service.token, "t");
  EXPECT_EQ(service.bundle, "A B");
}

TEST(ServiceKeys, TokenAlone_Taken) {
  EXPECT_EQ(MustParse("token = \"t\"\n").url, "");
}

TEST(ServiceKeys, SeveralServices_EachItsOwn) {
  const auto result = HostConfig::Parse(
      "[service.A]\nurl = \"http://a\"\n[service.B]\nurl = \"http://b\"\n[service.C]\n", "f");
  ASSERT_TRUE(result.Ok());
  const auto& services = result.Value().services;
  ASSERT_EQ(services.size(), 3U);
  EXPECT_EQ(services.at("A").url, "http://a");
  EXPECT_EQ(services.at("B").url, "http://b");
  EXPECT_EQ(services.at("C").url, "");
}

TEST(ServiceKeys, UsableUrl_TakenWithSchemeInLowerCase) {
  struct Case {
    std::string url;
    std::string taken;
  };
  const std::vector<Case> cases = {
      {"http://h", "http://h"},
      {"https://h/", "https://h/"},
      {"HTTPS://Host.Example/Path", "https://Host.Example/Path"},
      {"hTtP://h", "http://h"},
      {"http://10.0.0.1:8080/a/b?c=d", "http://10.0.0.1:8080/a/b?c=d"},
      {"http://h:1", "http://h:1"},
      {"http://h:65535/", "http://h:65535/"},
      {"http://a_b-c.d", "http://a_b-c.d"},
      {"http://h/a:b@c[d]", "http://h/a:b@c[d]"},
  };
  for (const auto& one : cases) {
    std::string taken;
    EXPECT_EQ(TakeUrl(one.url, taken), std::nullopt) << one.url;
    EXPECT_EQ(taken, one.taken);
  }
}

TEST(ServiceKeys, UnusableUrl_RefusedWithItsReason) {
  struct Case {
    std::string url;
    std::string reason;
  };
  const std::string scheme = "must begin with http:// or https://";
  const std::string letters = "must name a host by letters, digits, dots and hyphens";
  const std::string port = "must have a port from 1 to 65535";
  const std::string visible = "must be visible ASCII characters";
  const std::vector<Case> cases = {
      {"", scheme},
      {"h", scheme},
      {"http:/h", scheme},
      {"ftp://h", scheme},
      {" http://h", scheme},
      {"httpss://h", scheme},
      {"http", scheme},
      {"http://", "must name a host"},
      {"http:///a", "must name a host"},
      {"http://:80/a", "must name a host"},
      {"http://user@h/a", "must not contain a user's name"},
      {"http://user:pass@h", "must not contain a user's name"},
      {"http://[::1]/", "must not name an IPv6 address"},
      {"http://[::1]:80/", "must not name an IPv6 address"},
      {"http://h%20/a", letters},
      {"http://h?a=b", letters},
      {"http://h#a", letters},
      {"http://h\\a", letters},
      {"http://h:/a", port},
      {"http://h:0", port},
      {"http://h:65536", port},
      {"http://h:-1", port},
      {"http://h:+1", port},
      {"http://h:80x", port},
      {"http://h:80:80", port},
      {"http://h:99999999999999999999", port},
      {"http://h/a b", visible},
      {"http://h/\t", visible},
      {std::string("http://h\0/", 10), visible},
      {"http://h/\n", visible},
      {"http://h/\x7F", visible},
      {"http://h\xC3\xA4/", visible},
  };
  for (const auto& one : cases) {
    std::string taken = "untouched";
    EXPECT_EQ(TakeUrl(one.url, taken), Refusal(one.reason)) << one.url;
    EXPECT_EQ(taken, "untouched");
  }
}

TEST(ServiceKeys, Scheme_TellsTls) {
  EXPECT_TRUE(MustParse("url = \"https://h\"\nca_file = \"/ca\"\n").IsTls());
  EXPECT_TRUE(MustParse("url = \"HTTPS://h\"\nca_file = \"/ca\"\n").IsTls());
  EXPECT_FALSE(MustParse("url = \"http://h/https://\"\n").IsTls());
  EXPECT_FALSE(ServiceConfig{}.IsTls());
}

TEST(ServiceKeys, UnusableValue_FileLineAndKeyNamed) {
  struct Case {
    std::string line;
    std::string failure;
  };
  const std::string token = "token: must be 1 to 16384 visible ASCII characters";
  const std::vector<Case> cases = {
      {"url = \"h\"", "url: must begin with http:// or https://"},
      {"token = \"\"", token},
      {"token = \"a b\"", token},
      {"token = \"a\\r\\nX: y\"", token},
      {"token = \"a\\u0000\"", token},
      {"token = \"\\u00E4\"", token},
      {"token = \"" + std::string(kMaxTokenBytes + 1, 'x') + "\"", token},
      {"token_file = \"t\"", "token_file: must be an absolute path"},
      {"ca_file = \"./ca\"", "ca_file: must be an absolute path"},
      {"bundle = \"\"", "bundle: must not be empty"},
      {"bundle = \"a\\u0000\"", "bundle: must not contain control characters"},
      {"cert_file = \"\"", "cert_file: must be an absolute path"},
      {"key_file = \"k\"", "key_file: must be an absolute path"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(FailureOf("[service.\"A.B\"]\n" + one.line + "\n"),
              "host.toml:2: service.\"A.B\"." + one.failure);
  }
}

TEST(ServiceKeys, LongestToken_Taken) {
  const std::string longest(kMaxTokenBytes, 'x');
  EXPECT_EQ(MustParse("token = \"" + longest + "\"\n").token, longest);
}

TEST(ServiceKeys, KeysThatDoNotFit_KeyToPutRightNamed) {
  struct Case {
    std::string keys;
    std::string failure;
  };
  const std::vector<Case> cases = {
      {"token_file = \"/t\"\ntoken = \"t\"\n", "3: token: must not stand beside token_file"},
      {"ca_file = \"/c\"\nbundle = \"B\"\n", "3: bundle: must not stand beside ca_file"},
      {"token = \"t\"\nurl = \"https://h\"\n", "3: url: needs ca_file or bundle"},
      {"url = \"HTTPS://h\"\n", "2: url: needs ca_file or bundle"},
      {"key_file = \"/k\"\n", "2: key_file: needs cert_file"},
      {"cert_file = \"/c\"\n", "2: cert_file: needs key_file"},
  };
  for (const auto& one : cases) {
    const auto colon = one.failure.find(": ");
    EXPECT_EQ(FailureOf("[service.A]\n" + one.keys),
              "host.toml:" + one.failure.substr(0, colon + 2) + "service.\"A\"." +
                  one.failure.substr(colon + 2));
  }
}

}  // namespace
}  // namespace platform_host
