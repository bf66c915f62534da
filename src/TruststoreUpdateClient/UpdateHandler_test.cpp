#include "TruststoreUpdateClient/UpdateHandler.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <utility>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeContainerHandler.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

const std::string kStatusLine = "info: Send Update Status to the Device Platform: ";

class UpdateHandlerOver : public ::testing::Test {
 protected:
  std::string FileHolding(const std::string& text) const {
    tests::WriteText(directory.Path() + "/container", text);
    return directory.Path() + "/container";
  }

  // What a failure to read the file is told in.
  static std::vector<std::string> NotOpened(const std::string& path) {
    return {"error: Failed to open '" + path + "'"};
  }

  static std::vector<std::string> NotRead(const std::string& path, const std::string& reason) {
    return {"error: Failed to open '" + path + "'",
            "info: The container file was not read: " + reason};
  }

  [[nodiscard]] std::string Marker() const { return directory.Path() + "/marker"; }

  [[nodiscard]] UpdateHandler::Collaborators Over(std::shared_ptr<ContainerHandlerIf> given) const {
    return {std::move(given), std::make_shared<ContainerConnection>(nullptr), nullptr, std::nullopt,
            Marker()};
  }

  const tests::TemporaryDirectory directory;
  const std::shared_ptr<tests::FakeContainerHandler> containerHandler =
      std::make_shared<tests::FakeContainerHandler>();
  const platform_host::CapturedLog log;
  UpdateHandler handler{Over(containerHandler)};
};

TEST_F(UpdateHandlerOver, ContainerHandler_NothingLogged) {
  EXPECT_THAT(log.Lines(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, ContainerFile_EveryByteHandedOver) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes.push_back(static_cast<char>(byte));
  handler.UpdateDevContainer(FileHolding(bytes + "\n"));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre(bytes + "\n"));
}

TEST_F(UpdateHandlerOver, InstalledContainer_SuccessLogged) {
  handler.UpdateDevContainer(FileHolding("a.b.c"));
  EXPECT_THAT(log.Lines(), ElementsAre(kStatusLine + "STATUS_CODE_SUCCESS"));
}

TEST_F(UpdateHandlerOver, EveryStatus_LoggedByItsName) {
  const std::string path = FileHolding("a.b.c");
  const std::vector<std::pair<int, std::string>> names = {{1, "STATUS_CODE_DOWNLOAD_ERROR"},
                                                          {3, "STATUS_CODE_SIGN_VALIDATION_ERROR"},
                                                          {4, "STATUS_CODE_DOWNGRADE_ERROR"},
                                                          {5, "STATUS_CODE_CERT_DECODE_ERROR"},
                                                          {6, "STATUS_CODE_TSC_ROLLBACK"},
                                                          {7, "STATUS_CODE_STORAGE_ERROR"},
                                                          {9, "STATUS_CODE_UNEXPECTED_ERROR"},
                                                          {10, "STATUS_CODE_10"},
                                                          {13, "STATUS_CODE_13"},
                                                          {14, "STATUS_CODE_14"},
                                                          {15, "STATUS_CODE_15"},
                                                          {16, "STATUS_CODE_16"}};
  for (const auto& [status, name] : names) {
    platform_host::CapturedLog lines;
    containerHandler->AnswerVerification(static_cast<ResponseStatus>(status));
    handler.UpdateDevContainer(path);
    EXPECT_THAT(lines.Lines(), ElementsAre(kStatusLine + name));
  }
}

TEST_F(UpdateHandlerOver, EmptyFile_HandedOverEmpty) {
  handler.UpdateDevContainer(FileHolding(""));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre(""));
}

TEST_F(UpdateHandlerOver, SecondContainer_VerifiedToo) {
  handler.UpdateDevContainer(FileHolding("first"));
  handler.UpdateDevContainer(FileHolding("second"));
  EXPECT_THAT(containerHandler->Containers(), ElementsAre("first", "second"));
}

TEST_F(UpdateHandlerOver, MissingFile_ToldAndNothingVerified) {
  const std::string path = directory.Path() + "/absent";
  handler.UpdateDevContainer(path);
  EXPECT_EQ(log.Lines(), NotOpened(path));
  EXPECT_THAT(containerHandler->Containers(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, EmptyPath_ToldAndNothingVerified) {
  handler.UpdateDevContainer("");
  EXPECT_EQ(log.Lines(), NotOpened(""));
  EXPECT_THAT(containerHandler->Containers(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, DirectoryInPlaceOfFile_ToldAndNothingVerified) {
  handler.UpdateDevContainer(directory.Path());
  EXPECT_EQ(log.Lines(), NotRead(directory.Path(), "Is a directory"));
  EXPECT_THAT(containerHandler->Containers(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, FileAtSizeLimit_HandedOver) {
  const std::string path = directory.Path() + "/large";
  tests::WriteSparse(path, kMaxContainerFileBytes);
  handler.UpdateDevContainer(path);
  EXPECT_THAT(containerHandler->Containers(), ElementsAre(SizeIs(kMaxContainerFileBytes)));
}

TEST_F(UpdateHandlerOver, FileAboveSizeLimit_ToldAndNothingVerified) {
  const std::string path = directory.Path() + "/large";
  tests::WriteSparse(path, kMaxContainerFileBytes + 1);
  handler.UpdateDevContainer(path);
  EXPECT_EQ(log.Lines(), NotRead(path, "File too large"));
  EXPECT_THAT(containerHandler->Containers(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, RemoveAllTrustStores_AnswerOfContainerHandler) {
  EXPECT_EQ(handler.RemoveAllTrustStores(), STATUS_CODE_SUCCESS);
  containerHandler->AnswerRemoval(kStoresNotRemoved);
  EXPECT_EQ(handler.RemoveAllTrustStores(), kStoresNotRemoved);
  EXPECT_EQ(containerHandler->Removals(), 2);
  EXPECT_THAT(log.Lines(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, Getters_AnswersOfContainerHandler) {
  containerHandler->SetInstalled("installed", 4294967295U);
  std::string id = "before";
  handler.GetInstalledContainerId(id);
  EXPECT_EQ(id, "installed");
  EXPECT_EQ(handler.GetInstalledContainerTimestamp(), 4294967295U);
  std::string text = "before";
  handler.ConvertEpochTimestampToDatetime(7, text);
  EXPECT_EQ(text, "7");
  EXPECT_THAT(log.Lines(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, Fresh_NothingUnderWayAndEveryFlagOff) {
  EXPECT_FALSE(handler.IsContainerUpdateOngoing());
  EXPECT_FALSE(handler.IsConnectingAllowed());
  EXPECT_FALSE(handler.IsProcessingStopped());
  EXPECT_FALSE(handler.IsUpdateRetryDisabled());
  EXPECT_THAT(containerHandler->Requests(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, ConnectionState_RememberedAsToldLast) {
  handler.ConnectionStateChange(true);
  EXPECT_TRUE(handler.IsConnectingAllowed());
  handler.ConnectionStateChange(false);
  EXPECT_FALSE(handler.IsConnectingAllowed());
  EXPECT_THAT(log.Lines(), SizeIs(0));
}

TEST_F(UpdateHandlerOver, Notification_WrittenAndTold) {
  const std::vector<std::pair<unsigned char, std::string>> cases = {
      {1, "info: Update Notification sent to other applications"},
      {0, "info: Update Notification cleared"},
      {255, "info: Update Notification sent to other applications"}};
  for (const auto& [value, line] : cases) {
    const platform_host::CapturedLog lines;
    handler.SendUpdateNotificationToOtherApps(value);
    EXPECT_THAT(lines.Lines(), ElementsAre(line));
    EXPECT_EQ(tests::ReadText(Marker()), std::to_string(value));
  }
}

TEST_F(UpdateHandlerOver, NotificationThatCannotBeWritten_Told) {
  std::filesystem::create_directory(Marker());
  handler.SendUpdateNotificationToOtherApps(0);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: Error sending Update Notification to other applications!",
                          "info: The marker file was not written: Is a directory"));
}

class UpdateHandlerWithoutContainerHandler : public UpdateHandlerOver {
 protected:
  UpdateHandler without{Over(nullptr)};
};

TEST_F(UpdateHandlerWithoutContainerHandler, Construction_Logged) {
  EXPECT_THAT(log.Lines(), ElementsAre("error: Cannot create Containerhandler!"));
}

TEST_F(UpdateHandlerWithoutContainerHandler, Getters_NothingInstalled) {
  std::string id = "before";
  without.GetInstalledContainerId(id);
  EXPECT_EQ(id, "");
  EXPECT_EQ(without.GetInstalledContainerTimestamp(), 0U);
  std::string text = "before";
  without.ConvertEpochTimestampToDatetime(7, text);
  EXPECT_EQ(text, "");
}

TEST_F(UpdateHandlerWithoutContainerHandler, Removal_Fails) {
  EXPECT_EQ(without.RemoveAllTrustStores(), kStoresNotRemoved);
}

TEST_F(UpdateHandlerWithoutContainerHandler, Container_UnexpectedError) {
  without.UpdateDevContainer(FileHolding("a.b.c"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Cannot create Containerhandler!",
                                       kStatusLine + "STATUS_CODE_UNEXPECTED_ERROR"));
}

}  // namespace
}  // namespace truststore_update_client
