// What every trust store does, asked of the host's directory, of the other platform's, and of the
// one in memory that other tests stand on.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/files/FileName.h"
#include "platform/host/ostra_tee/TrustStoreDirectory.h"
#include "platform/host/work_lock/WorkLock.h"
#include "support/FileContents.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/other_platform/TrustStoreInMemory.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {
namespace {

using ostra::tee::TrustStoreUpdateAPI;

std::string PemOf(const std::string& content) {
  return "-----BEGIN CERTIFICATE-----\n" + content + "\n-----END CERTIFICATE-----\n";
}

/// One implementation with a way to provision it, before its store is used.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual TrustStoreUpdateAPI& Store() = 0;
  virtual void Provision(const std::string& name, const std::string& pem) = 0;
};

class FakeSubject : public Subject {
 public:
  TrustStoreUpdateAPI& Store() override { return store; }
  void Provision(const std::string& name, const std::string& pem) override {
    store.Provision(name, pem);
  }

 private:
  FakeTrustStore store;
};

class DirectorySubject : public Subject {
 public:
  TrustStoreUpdateAPI& Store() override { return store; }
  void Provision(const std::string& name, const std::string& pem) override {
    const std::string factory = directory.Path() + "/factory";
    ::mkdir(factory.c_str(), 0755);
    const std::string path = factory + "/" + platform_host::FileNameOf(name) + ".pem";
    ASSERT_EQ(support::ReplaceFile(path, pem, 0644), 0);
  }

 private:
  const TemporaryDirectory directory;
  platform_host::WorkLock lock{directory.Path() + "/work.lock"};
  platform_host::TrustStoreDirectory store{directory.Path(), lock};
};

class OtherPlatformSubject : public Subject {
 public:
  TrustStoreUpdateAPI& Store() override {
    if (!store) store.emplace(factory.Path());
    return *store;
  }
  void Provision(const std::string& name, const std::string& pem) override {
    ASSERT_FALSE(store);
    ASSERT_EQ(support::ReplaceFile(factory.Path() + "/" + name + ".pem", pem, 0644), 0);
  }

 private:
  const TemporaryDirectory factory;
  std::optional<other_platform::TrustStoreInMemory> store;
};

struct Implementation {
  const char* name;
  std::function<std::unique_ptr<Subject>()> make;
};

/// Names the tests for ctest.
void PrintTo(const Implementation& implementation, std::ostream* out) {
  *out << implementation.name;
}

class TrustStoreContract : public ::testing::TestWithParam<Implementation> {
 protected:
  /// The bundle's text, or "none".
  std::string Read(const std::string& name) {
    std::string pem = "left over";
    if (subject->Store().ReadCertificateBundle(name, pem) == 0) return pem;
    EXPECT_EQ(pem, "");
    return "none";
  }

  bool Install(const std::string& name, const std::string& pem) {
    return subject->Store().InstallCertificateBundle(name, pem) == 0;
  }

  bool RemoveAll() { return subject->Store().RemoveAllTrustStores() == 0; }

  const platform_host::CapturedLog log;
  const std::unique_ptr<Subject> subject = GetParam().make();
};

TEST_P(TrustStoreContract, NothingThere_ReadFails) {
  EXPECT_EQ(Read("A"), "none");
}

TEST_P(TrustStoreContract, NothingThere_RemovalSucceeds) {
  EXPECT_TRUE(RemoveAll());
}

TEST_P(TrustStoreContract, Installed_ReadByteForByte) {
  const std::string pem = PemOf("a") + std::string("\0\r\n\xFF", 4) + PemOf("b");
  ASSERT_TRUE(Install("A", pem));
  EXPECT_EQ(Read("A"), pem);
}

TEST_P(TrustStoreContract, InstalledAgain_Replaced) {
  ASSERT_TRUE(Install("A", PemOf("a longer first content")));
  ASSERT_TRUE(Install("A", PemOf("b")));
  EXPECT_EQ(Read("A"), PemOf("b"));
}

TEST_P(TrustStoreContract, SeveralInstalled_EachItsOwn) {
  ASSERT_TRUE(Install("A", PemOf("a")));
  ASSERT_TRUE(Install("B", PemOf("b")));
  EXPECT_EQ(Read("A"), PemOf("a"));
  EXPECT_EQ(Read("B"), PemOf("b"));
}

TEST_P(TrustStoreContract, RemovedAll_NothingInstalledLeft) {
  ASSERT_TRUE(Install("A", PemOf("a")));
  ASSERT_TRUE(Install("B", PemOf("b")));
  EXPECT_TRUE(RemoveAll());
  EXPECT_EQ(Read("A"), "none");
  EXPECT_EQ(Read("B"), "none");
}

TEST_P(TrustStoreContract, InstalledAfterRemoval_Read) {
  ASSERT_TRUE(Install("A", PemOf("a")));
  ASSERT_TRUE(RemoveAll());
  ASSERT_TRUE(Install("A", PemOf("b")));
  EXPECT_EQ(Read("A"), PemOf("b"));
}

TEST_P(TrustStoreContract, Provisioned_Read) {
  subject->Provision("ZORA", PemOf("root"));
  EXPECT_EQ(Read("ZORA"), PemOf("root"));
}

TEST_P(TrustStoreContract, ProvisionedAndInstalled_InstalledRead) {
  subject->Provision("ZORA", PemOf("root"));
  ASSERT_TRUE(Install("ZORA", PemOf("newer root")));
  EXPECT_EQ(Read("ZORA"), PemOf("newer root"));
}

TEST_P(TrustStoreContract, RemovedAll_ProvisionedReadAgain) {
  subject->Provision("ZORA", PemOf("root"));
  ASSERT_TRUE(Install("ZORA", PemOf("newer root")));
  ASSERT_TRUE(RemoveAll());
  EXPECT_EQ(Read("ZORA"), PemOf("root"));
}

TEST_P(TrustStoreContract, InstalledWithoutWholeCertificate_ProvisionedNotHidden) {
  subject->Provision("ZORA", PemOf("root"));
  const std::string pem = PemOf("newer root");
  const std::size_t body = pem.find("newer");
  const std::size_t end = pem.find("-----END");
  const std::vector<std::string> texts = {
      "",
      "no certificate here\n",
      pem.substr(0, body),
      pem.substr(0, end),
      pem.substr(0, pem.size() - 2),
      pem.substr(body),
      pem.substr(end) + pem.substr(0, end),
  };
  for (const auto& text : texts) {
    ASSERT_TRUE(Install("ZORA", text));
    EXPECT_EQ(Read("ZORA"), PemOf("root")) << text;
  }
}

TEST_P(TrustStoreContract, InstalledWithOneWholeCertificate_InstalledRead) {
  subject->Provision("ZORA", PemOf("root"));
  const std::string pem = "-----END CERTIFICATE-----\n" + PemOf("newer root") + "cut -----BEGIN ";
  ASSERT_TRUE(Install("ZORA", pem));
  EXPECT_EQ(Read("ZORA"), pem);
}

TEST_P(TrustStoreContract, OnlyWithoutCertificate_ReadAsItStands) {
  subject->Provision("B", "-----BEGIN PUBLIC KEY-----\n");
  ASSERT_TRUE(Install("A", ""));
  EXPECT_EQ(Read("A"), "");
  EXPECT_EQ(Read("B"), "-----BEGIN PUBLIC KEY-----\n");
}

TEST_P(TrustStoreContract, NamesOfAnyBytes_EachItsOwnBundle) {
  const std::vector<std::string> names = {"",
                                          "A",
                                          "a",
                                          ".",
                                          "..",
                                          "...",
                                          "/",
                                          "../A",
                                          "A/../A",
                                          "%",
                                          "%41",
                                          "A ",
                                          " A",
                                          "A.",
                                          ".A",
                                          "\n",
                                          "%00",
                                          "%2F",
                                          "A/",
                                          "//",
                                          "installed",
                                          "factory",
                                          "A.pem",
                                          std::string("\0", 1),
                                          std::string("A\0", 2),
                                          std::string("A\0B", 3),
                                          "\xC3\xA4",
                                          "\xE4"};
  for (const auto& name : names) ASSERT_TRUE(Install(name, PemOf(name))) << name;
  for (const auto& name : names) EXPECT_EQ(Read(name), PemOf(name)) << name;
  EXPECT_TRUE(RemoveAll());
  for (const auto& name : names) EXPECT_EQ(Read(name), "none") << name;
}

TEST_P(TrustStoreContract, NameAtLimit_Installed) {
  const std::string name(FakeTrustStore::kNameLimit, 'n');
  ASSERT_TRUE(Install(name, PemOf("a")));
  EXPECT_EQ(Read(name), PemOf("a"));
}

TEST_P(TrustStoreContract, NameAboveLimit_FailsAndOthersStand) {
  for (const std::size_t size : {FakeTrustStore::kNameLimit + 1, std::size_t{300}}) {
    const std::string name(size, 'n');
    ASSERT_TRUE(Install(name.substr(0, FakeTrustStore::kNameLimit), PemOf("short")));
    EXPECT_FALSE(Install(name, PemOf("long")));
    EXPECT_EQ(Read(name), "none");
    EXPECT_EQ(Read(name.substr(0, FakeTrustStore::kNameLimit)), PemOf("short"));
  }
}

TEST_P(TrustStoreContract, LargeBundle_Whole) {
  const std::string pem = PemOf(std::string(4U << 20U, 'x'));
  ASSERT_TRUE(Install("A", pem));
  EXPECT_TRUE(Read("A") == pem);
}

INSTANTIATE_TEST_SUITE_P(
    , TrustStoreContract,
    ::testing::Values(
        Implementation{"Directory", [] { return std::make_unique<DirectorySubject>(); }},
        Implementation{"OtherPlatform", [] { return std::make_unique<OtherPlatformSubject>(); }},
        Implementation{"Fake", [] { return std::make_unique<FakeSubject>(); }}),
    [](const auto& implementation) { return implementation.param.name; });

}  // namespace
}  // namespace tests
