#include "TruststoreUpdateClient/TruststoreUpdateClient.h"

#include <botan/version.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>

#include "TruststoreUpdateClient/Constants.h"
#include "ara/per/KeyValueStorage.h"
#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/QuietCollaborators.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Deadline.h"
#include "tests/support/Files.h"
#include "tests/support/FreshUnit.h"
#include "tests/support/HostConfiguration.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using Lines = std::vector<std::string>;

const std::string kSessionOk = "info: LumoConnector Status OK";
const std::string kStarted = "info: Lumo-Connector was started successfully.";
const std::string kPem = "-----BEGIN CERTIFICATE-----\n";

// Everything that the main thread logs while a client with a usable configuration is constructed.
Lines LinesOfConstruction() {
  return {"info: Trust Store Update Client started",
          "info: Trust Store Update Client version: 2.1.8-support-0.0.3",
          "info: Waiting for Lumo-Connector to start",
          "debug: Process timeout set to inf",
          kStarted,
          "debug: libara_exec: application state running"};
}

// Splits the lines of the connector's thread off: those of two threads have no order.
Lines TakeOut(Lines& lines, const Lines& wanted) {
  const auto rest = std::stable_partition(lines.begin(), lines.end(), [&](const auto& line) {
    return std::find(wanted.begin(), wanted.end(), line) == wanted.end();
  });
  const Lines taken(rest, lines.end());
  lines.erase(rest, lines.end());
  return taken;
}

// The line about the cryptographic library's version is the trust store facade's own affair.
void TakeOutLibraryVersion(Lines& lines) {
  const auto rest = std::remove_if(lines.begin(), lines.end(), [](const auto& line) {
    return line.find(Botan::short_version_string()) != std::string::npos;
  });
  EXPECT_EQ(lines.end() - rest, 1);
  lines.erase(rest, lines.end());
}

std::ptrdiff_t PlaceOf(const std::string& line, const Lines& lines) {
  return std::find(lines.begin(), lines.end(), line) - lines.begin();
}

Lines NotOpened(const std::string& path) {
  return {"error: Failed to open '" + path + "'"};
}

// Ends the process when something waits for ever.
class Watched : public ::testing::Test {
 protected:
  Watched() { ::alarm(static_cast<unsigned>(2 * tests::kDeadline.count())); }
  ~Watched() override { ::alarm(0); }

  const platform_host::CapturedLog log;
  const tests::CapturedOutput output;
};

class ClientConstruction : public Watched {};

TEST_F(ClientConstruction, UsableConfiguration_ConnectorStarted) {
  const tests::HostConfiguration configuration;
  const TruststoreUpdateClient client(tests::QuietCollaborators());
  Lines lines = log.Lines();
  EXPECT_LT(PlaceOf(kSessionOk, lines), PlaceOf(kStarted, lines));
  EXPECT_THAT(TakeOut(lines, {kSessionOk}), SizeIs(1));
  TakeOutLibraryVersion(lines);
  EXPECT_EQ(lines, LinesOfConstruction());
}

TEST_F(ClientConstruction, BrokenConfiguration_FailureToldAndClientLives) {
  const tests::HostConfiguration configuration("[persistency]\nfolder = 1\n");
  const TruststoreUpdateClient client(tests::QuietCollaborators());
  const std::string reason = configuration.File() + ":2: persistency.folder: unknown key";
  const Lines ofConnector = {"error: libLumoConnectorShared: " + reason,
                             "error: LumoConnectorStatus Failed=1"};
  Lines lines = log.Lines();
  EXPECT_EQ(TakeOut(lines, ofConnector), ofConnector);
  TakeOutLibraryVersion(lines);
  Lines expected = LinesOfConstruction();
  std::replace(expected.begin(), expected.end(), kStarted,
               std::string("error: Lumo-Connector failed to start! SessionStatus=1"));
  expected.push_back("error: PersistantFileStorage: Cannot read key 'truststore-timestamp': " +
                     reason);
  EXPECT_EQ(lines, expected);
  EXPECT_THAT(tests::NamesIn(configuration.Directory()), ElementsAre("host.toml"));
}

// The defaults name fixed directories.
TEST_F(ClientConstruction, NoConfiguration_ConnectorStarted) {
  tests::RunOnFreshUnit([this] {
    ::setenv("TSUC_HOST_CONFIG", "/run/absent.toml", 1);
    const TruststoreUpdateClient client(tests::QuietCollaborators());
    Lines lines = log.Lines();
    EXPECT_THAT(TakeOut(lines, {kSessionOk}), SizeIs(1));
    TakeOutLibraryVersion(lines);
    EXPECT_EQ(lines, LinesOfConstruction());
    EXPECT_TRUE(std::filesystem::exists("/var/lib/truststore-update-client/persistency"));
  });
}

TEST_F(ClientConstruction, ManyClientsInTurn_EachStartsAndEnds) {
  constexpr int kClients = 20;
  const tests::HostConfiguration configuration;
  for (int i = 0; i < kClients; ++i)
    const TruststoreUpdateClient client(tests::QuietCollaborators());
  const Lines lines = log.Lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kStarted), kClients);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kSessionOk), kClients);
}

TEST_F(ClientConstruction, End_WorkTerminatedAndNothingElseLogged) {
  const tests::HostConfiguration configuration;
  auto client = std::make_unique<TruststoreUpdateClient>(tests::QuietCollaborators());
  platform_host::CapturedLog lines;
  client.reset();
  EXPECT_THAT(lines.Lines(), ElementsAre("debug: HSM: OCSP retries Disabled",
                                         "debug: ContainerHandler: Processing terminated"));
}

// A client whose construction is over; its lines are not in the log.
class Client : public Watched {
 protected:
  const tests::HostConfiguration configuration;
  TruststoreUpdateClient client{tests::QuietCollaborators()};
  const platform_host::CapturedLog lines;
};

TEST_F(Client, MissingContainerFile_Told) {
  const std::string path = configuration.Directory() + "/absent";
  client.HandleDevContainer(path, false);
  EXPECT_EQ(lines.Lines(), NotOpened(path));
}

TEST_F(Client, FileThatIsNoContainer_RefusedWithoutReset) {
  const std::string path = configuration.Directory() + "/container";
  tests::WriteText(path, "no container");
  client.HandleDevContainer(path, false);
  EXPECT_EQ(lines.Lines().back(),
            "info: Send Update Status to the Device Platform: STATUS_CODE_SIGN_VALIDATION_ERROR");
  EXPECT_THAT(lines.Lines(),
              ::testing::Not(::testing::Contains("info: Truststore Update Client Factory Reset")));
}

class ClientReset : public Watched {
 protected:
  // A unit whose packaging has made the client's directory, with something installed.
  static void Provide() {
    ::setenv("TSUC_HOST_CONFIG", "/run/absent.toml", 1);
    std::filesystem::create_directories(tempDir);
    const auto store = ostra::tee::TrustStoreUpdateAPI::get_instance();
    EXPECT_EQ(store->InstallCertificateBundle("A", kPem), 0);
  }

  static bool IsInstalled() {
    std::string pem;
    return ostra::tee::TrustStoreUpdateAPI::get_instance()->ReadCertificateBundle("A", pem) == 0;
  }

  static std::string Record(const std::string& key) {
    const auto value = ara::per::KeyValueStorage("FileStoragePort").GetValue(key);
    return {value.GetBinary()->begin(), value.GetBinary()->end()};
  }

  static Lines LinesOfReset() {
    const std::string stored = "info: PersistantFileStorage: Stored file '" + tempDir;
    return {"info: Truststore Update Client Factory Reset",
            stored + "/Truststore_Container_ID' with key 'truststore-container-id'",
            stored + "/Truststore_Header_Timestamp' with key 'truststore-timestamp'",
            "info: Truststores cleared succesfully."};
  }
};

TEST_F(ClientReset, EverythingWorks_StoresAndRecordsCleared) {
  tests::RunOnFreshUnit([] {
    Provide();
    const TruststoreUpdateClient client(tests::QuietCollaborators());
    EXPECT_TRUE(client.FactoryReset());
    EXPECT_FALSE(IsInstalled());
    EXPECT_EQ(Record("truststore-container-id"), "");
    EXPECT_EQ(Record("truststore-timestamp"), "0");
  });
}

TEST_F(ClientReset, BeforeContainer_ResetThenContainer) {
  tests::RunOnFreshUnit([] {
    Provide();
    TruststoreUpdateClient client{tests::QuietCollaborators()};
    const platform_host::CapturedLog lines;
    client.HandleDevContainer("/run/absent", true);
    Lines expected = LinesOfReset();
    for (const std::string& line : NotOpened("/run/absent")) expected.push_back(line);
    EXPECT_EQ(lines.Lines(), expected);
    EXPECT_FALSE(IsInstalled());
  });
}

TEST_F(ClientReset, NotAskedFor_InstalledStays) {
  tests::RunOnFreshUnit([] {
    Provide();
    TruststoreUpdateClient client{tests::QuietCollaborators()};
    client.HandleDevContainer("/run/absent", false);
    EXPECT_TRUE(IsInstalled());
  });
}

// Without the directory the records cannot be cleared; the stores are, and the container is tried.
TEST_F(ClientReset, RecordsCannotBeWritten_FailureToldAndContainerTried) {
  tests::RunOnFreshUnit([] {
    Provide();
    std::filesystem::remove_all(tempDir);
    TruststoreUpdateClient client{tests::QuietCollaborators()};
    EXPECT_FALSE(client.FactoryReset());
    const platform_host::CapturedLog lines;
    client.HandleDevContainer("/run/absent", true);
    Lines all = lines.Lines();
    EXPECT_EQ(all.front(), "info: Truststore Update Client Factory Reset");
    const Lines end(all.end() - 3, all.end());
    EXPECT_EQ(end, (Lines{"info: Truststores cleared succesfully.", "error: Factory Reset failed!",
                          "error: Failed to open '/run/absent'"}));
    EXPECT_FALSE(IsInstalled());
  });
}

}  // namespace
}  // namespace truststore_update_client
