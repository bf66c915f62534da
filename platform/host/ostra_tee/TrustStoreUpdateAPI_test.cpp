#include "ostra/tee/TrustStoreUpdateAPI.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "platform/host/config/HostConfig.h"
#include "platform/host/control/ControlBoard.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using ostra::tee::TrustStoreUpdateAPI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kPem = "-----BEGIN CERTIFICATE-----\n";

class ConfiguredTrustStore : public ::testing::Test {
 protected:
  ~ConfiguredTrustStore() override { ::unsetenv(HostConfig::kPathVariable); }

  void Configure(const std::string& text) const {
    ASSERT_EQ(support::ReplaceFile(configPath, text, 0600), 0);
    ::setenv(HostConfig::kPathVariable, configPath.c_str(), 1);
  }

  const tests::TemporaryDirectory directory;
  const std::string configPath = directory.Path() + "/host.toml";
  const CapturedLog log;
  std::string pem;
};

TEST_F(ConfiguredTrustStore, GetInstance_AlwaysTheSame) {
  EXPECT_NE(TrustStoreUpdateAPI::get_instance(), nullptr);
  EXPECT_EQ(TrustStoreUpdateAPI::get_instance(), TrustStoreUpdateAPI::get_instance());
}

TEST_F(ConfiguredTrustStore, ConfiguredDirectories_Used) {
  Configure("[trust_store]\ndirectory = \"" + directory.Path() + "/store\"\n" +
            "[persistency]\ndirectory = \"" + directory.Path() + "/records\"\n");
  const auto store = TrustStoreUpdateAPI::get_instance();
  EXPECT_EQ(store->InstallCertificateBundle("A", kPem), 0);
  EXPECT_TRUE(std::filesystem::exists(directory.Path() + "/store/installed/A.pem"));
  EXPECT_TRUE(std::filesystem::exists(directory.Path() + "/records/work.lock"));
  EXPECT_EQ(store->ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, kPem);
  EXPECT_EQ(store->RemoveAllTrustStores(), 0);
  EXPECT_NE(store->ReadCertificateBundle("A", pem), 0);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ConfiguredTrustStore, BrokenConfiguration_EachOperationFailsWithErrorLine) {
  Configure("[trust_store]\ndirectory = \"" + directory.Path() + "/store\"\nmode = 3\n");
  const auto store = TrustStoreUpdateAPI::get_instance();
  pem = "left over";
  EXPECT_NE(store->ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, "");
  EXPECT_NE(store->InstallCertificateBundle("A", kPem), 0);
  EXPECT_NE(store->RemoveAllTrustStores(), 0);
  const std::string line =
      "error: libtruststore: " + configPath + ":3: trust_store.mode: unknown key";
  EXPECT_THAT(log.Lines(), ElementsAre(line, line, line));
  EXPECT_FALSE(std::filesystem::exists(directory.Path() + "/store"));
}

/// What the control socket shows of the bundles.
std::string Shown() {
  std::string answer;
  ControlBoard::OfProcess().Serve(
      R"({"command": "status"})",
      ControlReply([&answer](const std::string& line) { answer = line; }));
  return nlohmann::json::parse(answer)["status"]["bundles"].dump();
}

TEST_F(ConfiguredTrustStore, Bundles_ShownOnBoard) {
  Configure("[trust_store]\ndirectory = \"" + directory.Path() + "/store\"\n" +
            "[persistency]\ndirectory = \"" + directory.Path() + "/records\"\n");
  const auto store = TrustStoreUpdateAPI::get_instance();
  EXPECT_EQ(Shown(), "[]");
  EXPECT_EQ(store->InstallCertificateBundle("A", kPem + "-----END CERTIFICATE-----\n"), 0);
  std::filesystem::create_directory(directory.Path() + "/store/factory");
  ASSERT_EQ(support::ReplaceFile(directory.Path() + "/store/factory/B.pem", kPem, 0644), 0);
  EXPECT_EQ(Shown(), R"([{"certificates":1,"from":"installed","name":"A"},)"
                     R"({"certificates":0,"from":"factory","name":"B"}])");
}

TEST_F(ConfiguredTrustStore, BundlesOfBrokenConfiguration_ErrorShown) {
  Configure("[trust_store]\nmode = 4\n");
  ASSERT_NE(TrustStoreUpdateAPI::get_instance(), nullptr);
  EXPECT_EQ(Shown(), R"({"error":")" + configPath + R"(:2: trust_store.mode: unknown key"})");
  EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace platform_host
