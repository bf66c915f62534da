// What a lack of memory costs an update or a report: lines of the log and attempts, never the work
// itself, and no stop is lost by it.
#include <pthread.h>

#include <exception>
#include <thread>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/HSM.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/ReplacedNew.h"
#include "tests/support/UpdateHandlerTest.h"

namespace truststore_update_client {
namespace {

class UpdateHandlerMemory : public tests::UpdateHandlerTest,
                            public ::testing::WithParamInterface<const char*> {
 protected:
  ~UpdateHandlerMemory() override { tests::GrantMemory(); }

  // The lack of a thread ends when it asks the backend: what the doubles remember is not to be
  // lost.
  void EndLackAtBackend() {
    const bool update = std::string(GetParam()) == "ContainerUpdate";
    exchange->PlanDownloads({[update](std::string& container) {
      if (update) tests::GrantMemory();
      container = "a container";
      return kExchangeSuccess;
    }});
    exchange->PlanReports({[] {
      tests::GrantMemory();
      return kExchangeSuccess;
    }});
  }
};

INSTANTIATE_TEST_SUITE_P(Of, UpdateHandlerMemory,
                         ::testing::Values("ContainerUpdate", "StatusReport"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(UpdateHandlerMemory, LackAtAnyInstant_InstalledAndReportedOnce) {
  EndLackAtBackend();
  std::size_t turns = 0;
  for (const int refused : {1, 2, 3, 100}) {
    int granted = 0;
    do {
      Make();
      tests::RefuseMemory(GetParam(), granted, refused);
      EXPECT_TRUE(Start());
      EXPECT_TRUE(tests::Eventually([this] { return !handler->IsContainerUpdateOngoing(); }));
      tests::GrantMemory();
      ++turns;
      EXPECT_EQ(containerHandler->Containers().size(), turns) << granted << ", " << refused;
      EXPECT_EQ(exchange->Reports().size(), turns) << granted << ", " << refused;
      EXPECT_EQ(exchange->Reports().back(), "0||t2|http://u2");
      ++granted;
    } while (tests::RefusalsLeft() == 0 && !HasFailure());
    EXPECT_GT(granted, 5) << "memory was never short";
  }
}

// Over the real facade, whose waits the stop has to end, too.
class StopWithoutMemory : public tests::UpdateHandlerTest {
 protected:
  StopWithoutMemory() {
    const std::string noSwitches = directory.Path() + "/absent";
    collaborators.containerHandler = std::make_shared<ContainerHandler>(
        std::make_shared<HSM>(HSM::Collaborators{trustStore, PersistentFileStorage(records),
                                                 directory.Path() + "/id",
                                                 directory.Path() + "/timestamp"}),
        development_tools::DevelopmentTools(noSwitches));
  }
  ~StopWithoutMemory() override { tests::GrantMemory(); }

  // Whether `call` threw nothing on a thread that is given no memory.
  template <typename Call>
  static bool WorksWithoutMemory(Call call) {
    bool works = true;
    std::thread thread([&] {
      ::pthread_setname_np(::pthread_self(), "Stopper");
      tests::RefuseMemory("Stopper");
      try {
        call();
      } catch (const std::exception&) {
        works = false;
      }
      tests::GrantMemory();
    });
    thread.join();
    return works;
  }

  const std::shared_ptr<tests::FakeTrustStore> trustStore =
      std::make_shared<tests::FakeTrustStore>();
  const std::shared_ptr<tests::FakeRecords> records = std::make_shared<tests::FakeRecords>();
};

TEST_F(StopWithoutMemory, UpdateWaitsForConnection_Ends) {
  Make(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  EXPECT_TRUE(WorksWithoutMemory([this] { handler->StopProcessing(true); }));
  EXPECT_FALSE(handler->IsContainerUpdateOngoing());
}

TEST_F(StopWithoutMemory, Termination_EndsUpdate) {
  Make(false);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Logs(tests::kDownloadWaits));
  EXPECT_TRUE(WorksWithoutMemory([this] { handler->TerminateProcessing(); }));
  EXPECT_TRUE(tests::Eventually([this] { return !handler->IsContainerUpdateOngoing(); }));
}

}  // namespace
}  // namespace truststore_update_client
