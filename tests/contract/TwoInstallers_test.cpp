// Two processes install at once, through what the client sees of the platform: one waits until the
// other has finished.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "ara/per/KeyValueStorage.h"
#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "platform/host/config/HostConfig.h"
#include "support/FileContents.h"
#include "support/UniqueFd.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {
namespace {

using ara::per::KeyValueStorage;
using ara::per::KvsType;
using ostra::tee::TrustStoreUpdateAPI;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kBundles = 5;

void Record(const std::string& id) {
  KeyValueStorage storage("FileStoragePort");
  storage.SetValue("id", KvsType(std::vector<std::uint8_t>(id.begin(), id.end())));
  storage.SyncToStorage();
}

std::string RecordedId() {
  const auto value = KeyValueStorage("FileStoragePort").GetValue("id");
  const auto* bytes = value.GetBinary();
  return {bytes->begin(), bytes->end()};
}

std::string PemOf(const std::string& id) {
  return "-----BEGIN CERTIFICATE-----\n" + id + "\n";
}

/// One way between two processes.
class Pipe {
 public:
  Pipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    readEnd = support::UniqueFd(ends[0]);
    writeEnd = support::UniqueFd(ends[1]);
  }

  void Tell() const { EXPECT_EQ(support::WriteAll(writeEnd.Get(), "x"), 0); }

  /// Whether somebody tells within `wait`.
  [[nodiscard]] bool IsTold(std::chrono::milliseconds wait) const {
    pollfd end{readEnd.Get(), POLLIN, 0};
    char byte = 0;
    return ::poll(&end, 1, static_cast<int>(wait.count())) == 1 &&
           ::read(readEnd.Get(), &byte, 1) == 1;
  }

 private:
  support::UniqueFd readEnd;
  support::UniqueFd writeEnd;
};

/// The platform's operations in the order of an installation. Calls `afterFirst` when the first
/// bundle stands. Returns 0 when all of them succeed.
template <typename Action>
int InstallContainer(const std::string& id, Action afterFirst) {
  const auto store = TrustStoreUpdateAPI::get_instance();
  Record("");
  int failures = store->RemoveAllTrustStores();
  for (int index = 0; index < kBundles; ++index) {
    failures += store->InstallCertificateBundle(std::to_string(index), PemOf(id));
    if (index == 0) afterFirst();
  }
  Record(id);
  return failures;
}

TEST(TwoInstallers, SecondBeginsMeanwhile_WaitsUntilFirstHasFinished) {
  const TemporaryDirectory directory;
  const std::string config = directory.Path() + "/host.toml";
  ASSERT_EQ(
      support::ReplaceFile(config,
                           "[trust_store]\ndirectory = \"" + directory.Path() + "/store\"\n" +
                               "[persistency]\ndirectory = \"" + directory.Path() + "/records\"\n",
                           0600),
      0);
  ::setenv(platform_host::HostConfig::kPathVariable, config.c_str(), 1);
  const Pipe begun;
  const Pipe overtaken;
  ChildProcess first([&] {
    bool quiet = true;
    const int failures = InstallContainer("first", [&] {
      begun.Tell();
      quiet = !overtaken.IsTold(milliseconds(300));
    });
    return quiet ? failures : 100;
  });
  ChildProcess second([&] {
    if (!begun.IsTold(seconds(60))) return 101;
    return InstallContainer("second", [&] { overtaken.Tell(); });
  });
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);

  EXPECT_EQ(RecordedId(), "second");
  std::string pem;
  for (int index = 0; index < kBundles; ++index) {
    EXPECT_EQ(
        TrustStoreUpdateAPI::get_instance()->ReadCertificateBundle(std::to_string(index), pem), 0);
    EXPECT_EQ(pem, PemOf("second"));
  }
  ::unsetenv(platform_host::HostConfig::kPathVariable);
}

}  // namespace
}  // namespace tests
