#include "TruststoreUpdateClient/ContainerConnection.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <future>

#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/support/TemporaryDirectory.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::tests::Answer;
using ::tests::HttpResponse;
using Texts = std::vector<std::string>;
using namespace std::string_literals;

constexpr unsigned char kJob = 0;
constexpr unsigned char kUnknownCa = 3;
const std::string kUrl = "http://backend.invalid:8080/tsc/container";
const std::string kReportUrl = "http://backend.invalid/tsc/report";

// A length-delimited field of a message.
std::string Field(char tag, const std::string& bytes) {
  return std::string{tag, static_cast<char>(bytes.size())} + bytes;
}

class ContainerConnectionTest : public ::testing::Test {
 protected:
  unsigned int Download() {
    container = "from before";
    return connection.GetContainer(container, kJob, "", "installed", "secret", kUrl);
  }

  unsigned int Download(const std::string& response) {
    log.Clear();
    fake.Connect(Answer(response));
    return Download();
  }

  unsigned int Report(const std::string& response) {
    log.Clear();
    fake.Connect(Answer(response));
    return connection.SendUpdateStatus(STATUS_CODE_SUCCESS, "container-1", "secret", kReportUrl);
  }

  // What this class has logged: without the lines of the HTTP connection below it.
  Texts OwnLines() const {
    Texts lines = log.Lines();
    const auto isForeign = [](const std::string& line) {
      return line.find(": HttpConnection: ") != std::string::npos ||
             line.find("Received URL missing port number") != std::string::npos;
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isForeign), lines.end());
    return lines;
  }

  platform_host::CapturedLog log;
  ::tests::FakeLumoConnector fake;
  const ContainerConnection connection{std::make_shared<lumo_connector::LumoConnector>(nullptr)};
  std::string container;
};

TEST_F(ContainerConnectionTest, DownloadRequest_IsThisByteForByte) {
  fake.Connect(Answer(HttpResponse("204 No Content", "")));
  EXPECT_EQ(2U, connection.GetContainer(container, kUnknownCa, "op", "id-1", "secret", kUrl));
  EXPECT_THAT(
      fake.Requests(),
      ElementsAre("POST /tsc/container HTTP/1.1\r\n"
                  "Host: backend.invalid\r\n"
                  "Content-Type: application/RUNA_CO_TruststoreUpdateRequestTSC_v1+proto\r\n"
                  "Accept: application/RUNA_CT_TruststoreUpdateResponseTSC_v1+proto\r\n"
                  "Authorization: Bearer secret\r\n"
                  "Connection: close\r\n"
                  "Content-Length: 12\r\n"
                  "\r\n"
                  "\x08\x03\x12\x02op\x1A\x04id-1"));
  EXPECT_THAT(fake.Calls(), ::testing::Contains("SocketConnect RUNA-TruststoreUpdate.CORequestTSC "
                                                "backend.invalid 8080"));
}

TEST_F(ContainerConnectionTest, ReportRequest_IsThisByteForByte) {
  fake.Connect(Answer(HttpResponse("200 OK", "")));
  EXPECT_EQ(0U, connection.SendUpdateStatus(kProcessingStopped, "id-1", "secret", kReportUrl));
  EXPECT_THAT(
      fake.Requests(),
      ElementsAre("POST /tsc/report HTTP/1.1\r\n"
                  "Host: backend.invalid\r\n"
                  "Content-Type: application/RUNA_CO_TruststoreUpdateReportTSCStatus_v1+proto\r\n"
                  "Authorization: Bearer secret\r\n"
                  "Connection: close\r\n"
                  "Content-Length: 8\r\n"
                  "\r\n"
                  "\x08\x10\x12\x04id-1"));
  EXPECT_THAT(fake.Calls(), ::testing::Contains("SocketConnect RUNA-TruststoreUpdate."
                                                "COReportTSCStatus backend.invalid 80"));
}

TEST_F(ContainerConnectionTest, DownloadOfAContainer_GivesItsText) {
  EXPECT_EQ(0U, Download(HttpResponse("200 OK", Field('\x0A', "header.payload.signature"))));
  EXPECT_EQ("header.payload.signature", container);
  EXPECT_THAT(OwnLines(), ElementsAre("info: The Container was downloaded successfully"));
}

TEST_F(ContainerConnectionTest, DownloadAnsweredWithNoContent_TellsThatNothingIsNew) {
  for (const char* body : {"", "any body"}) {
    EXPECT_EQ(2U, Download(HttpResponse("204 No Content", body)));
    EXPECT_EQ("", container);
    EXPECT_THAT(OwnLines(), IsEmpty());
  }
}

TEST_F(ContainerConnectionTest, DownloadWithAnEmptyBody_IsAnEmptyContainer) {
  EXPECT_EQ(0U, Download(HttpResponse("200 OK", "")));
  EXPECT_EQ("", container);
  EXPECT_THAT(OwnLines(), ElementsAre("info: The Container was downloaded successfully"));
}

struct BadBody {
  const char* what;
  std::string body;
};

TEST_F(ContainerConnectionTest, DownloadWithABodyThatIsNoMessage_Fails) {
  const BadBody bodies[] = {
      {"a page", "<html>login</html>"},
      {"a truncated text", "\x0A\x50header"},
      {"a length beyond any memory", "\x0A\xFF\xFF\xFF\xFF\x0F"s + "h"},
      {"text that is no UTF-8", Field('\x0A', "\xFF")},
      {"a chunked body", "5\r\n\x0A\x03"s + "a.b\r\n0\r\n\r\n"},
      {"groups nested too deep", std::string(1000, '\x1B')},
  };
  for (const BadBody& body : bodies) {
    EXPECT_EQ(1U, Download(HttpResponse("200 OK", body.body))) << body.what;
    EXPECT_EQ("", container) << body.what;
    EXPECT_THAT(OwnLines(), ElementsAre("info: Error: Unable to parse Download Response!"))
        << body.what;
  }
}

struct UnexpectedResponse {
  const char* what;
  std::string response;
  const char* status;
};

TEST_F(ContainerConnectionTest, OtherResponses_FailWithTheirStatus) {
  const UnexpectedResponse responses[] = {
      {"nothing at all", "", "0"},
      {"no HTTP", "220 mail.invalid ESMTP\r\n\r\n", "0"},
      {"created", HttpResponse("201 Created", ""), "201"},
      {"accepted", HttpResponse("202 Accepted", ""), "202"},
      {"an unlisted redirection", HttpResponse("300 Multiple Choices", ""), "255"},
      {"refused", HttpResponse("401 Unauthorized", ""), "401"},
      {"busy", HttpResponse("503 Service Unavailable", "try later"), "503"},
      {"unknown", HttpResponse("999 Strange", ""), "255"},
      {"an interim answer alone", "HTTP/1.1 100 Continue\r\n\r\n", "100"},
  };
  for (const UnexpectedResponse& row : responses) {
    const std::string line = "error: Unexpected HTTP response: "s + row.status + "!";
    EXPECT_EQ(1U, Download(row.response)) << row.what;
    EXPECT_EQ("", container) << row.what;
    EXPECT_THAT(OwnLines(), ElementsAre(line)) << row.what;
    EXPECT_EQ(1U, Report(row.response)) << row.what;
    EXPECT_THAT(OwnLines(), ElementsAre(line)) << row.what;
  }
}

TEST_F(ContainerConnectionTest, ReportAnsweredWithOkOrNoContent_IsTaken) {
  for (const char* status : {"200 OK", "204 No Content"}) {
    EXPECT_EQ(0U, Report(HttpResponse(status, "body"))) << status;
    EXPECT_THAT(OwnLines(), ElementsAre("info: The Status was updated successfully")) << status;
  }
}

TEST_F(ContainerConnectionTest, StatusThatIsNoNumber_IsALineAndAFailure) {
  for (const char* response : {"HTTP/1.1 abc\r\n\r\n", "HTTP\r\n\r\n", "HTTP/1.1  \r\n\r\n"}) {
    EXPECT_EQ(1U, Download(response)) << response;
    EXPECT_THAT(OwnLines(), ElementsAre("error: Exchange for 'RUNA-TruststoreUpdate.CORequestTSC' "
                                        "failed: stoi"));
    EXPECT_EQ(1U, Report(response)) << response;
    EXPECT_THAT(OwnLines(), ElementsAre("error: Exchange for 'RUNA-TruststoreUpdate."
                                        "COReportTSCStatus' failed: stoi"));
  }
}

TEST_F(ContainerConnectionTest, ExchangeThatCannotBegin_Fails) {
  fake.RefuseConnect(111, "refused");
  EXPECT_EQ(1U, Download());
  EXPECT_EQ("", container);
  EXPECT_EQ(1U, connection.SendUpdateStatus(STATUS_CODE_SUCCESS, "", "", kReportUrl));
  EXPECT_EQ(1U, connection.GetContainer(container, kJob, "", "", "", "no-url"));
  EXPECT_EQ(1U, connection.SendUpdateStatus(STATUS_CODE_SUCCESS, "", "", ""));
  EXPECT_THAT(fake.Requests(), IsEmpty());
}

TEST_F(ContainerConnectionTest, TwoThreads_MayUseOneObject) {
  fake.Connect(Answer(HttpResponse("200 OK", Field('\x0A', "a.b.c"))));
  auto report = std::async(std::launch::async, [this] {
    return connection.SendUpdateStatus(STATUS_CODE_SUCCESS, "id", "secret", kReportUrl);
  });
  EXPECT_EQ(0U, Download());
  EXPECT_EQ("a.b.c", container);
  EXPECT_EQ(0U, report.get());
}

TEST_F(ContainerConnectionTest, RequestOfNothing_IsEmpty) {
  std::string body = "from before";
  EXPECT_FALSE(connection.CreateContainerDownloadRequest(body, kJob, "", ""));
  EXPECT_EQ("", body);
  body = "from before";
  EXPECT_FALSE(connection.CreateStatusUpdateRequest(body, STATUS_CODE_SUCCESS, ""));
  EXPECT_EQ("", body);
}

TEST_F(ContainerConnectionTest, NumbersWithoutAName_AreSentAsTheyAre) {
  std::string body;
  EXPECT_FALSE(connection.CreateContainerDownloadRequest(body, 255, "", ""));
  EXPECT_EQ("\x08\xFF\x01", body);
  EXPECT_FALSE(connection.CreateStatusUpdateRequest(body, kProcessingStopped, ""));
  EXPECT_EQ("\x08\x10", body);
}

TEST_F(ContainerConnectionTest, ResponseWithFieldsOfLaterVersions_IsRead) {
  const std::string body = "\x10\x01"s + Field('\x0A', "a.b.c") + Field('\x7A', "more");
  EXPECT_FALSE(connection.ParseContainerDownloadResponse(container, body));
  EXPECT_EQ("a.b.c", container);
}

TEST_F(ContainerConnectionTest, NothingThatIsNoUtf8_IsToldOnStandardError) {
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(connection.ParseContainerDownloadResponse(container, Field('\x0A', "\xFF")));
  std::string body;
  EXPECT_FALSE(connection.CreateContainerDownloadRequest(body, kJob, "\xFF", "\xFF"));
  EXPECT_FALSE(connection.CreateStatusUpdateRequest(body, STATUS_CODE_SUCCESS, "\xFF"));
  EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
}

// What the schema compiler reads in the body of a request, by the schemas of the tree.
std::string Decoded(const std::string& request, const std::string& message,
                    const std::string& schema) {
  const ::tests::TemporaryDirectory directory;
  const std::string file = directory.Path() + "/body";
  EXPECT_EQ(0, support::ReplaceFile(file, request.substr(request.find("\r\n\r\n") + 4), 0600));
  const std::string command = TSUC_PROTOC " --proto_path=" TSUC_PROTO_FOLDER
                                          " --decode=domain.backend.proto." +
                              message + " " + schema + " < " + file;
  std::FILE* output = ::popen(command.c_str(), "r");
  std::array<char, 4096> text{};
  const std::size_t size = std::fread(text.data(), 1, text.size(), output);
  EXPECT_EQ(0, ::pclose(output)) << command;
  return {text.data(), size};
}

TEST_F(ContainerConnectionTest, CapturedDownload_IsReadByTheSchemaCompiler) {
  fake.Connect(Answer(HttpResponse("204 No Content", "")));
  EXPECT_EQ(2U, connection.GetContainer(container, kUnknownCa, "op", "id-1", "secret", kUrl));
  EXPECT_EQ(
      "renewal_reason: RENEWAL_REASON_UNKNOWNCA\n"
      "operation_type_id: \"op\"\n"
      "container_id: \"id-1\"\n",
      Decoded(fake.Requests().at(0), "RUNACOTruststoreUpdateRequestTSCV1",
              "RUNA_CO_TruststoreUpdateRequestTSC_v1.proto"));
}

TEST_F(ContainerConnectionTest, CapturedReport_IsReadByTheSchemaCompiler) {
  fake.Connect(Answer(HttpResponse("204 No Content", "")));
  EXPECT_EQ(0U, connection.SendUpdateStatus(STATUS_CODE_TSC_ROLLBACK, "id-1", "", kReportUrl));
  EXPECT_EQ(
      "status_code: STATUS_CODE_TSC_ROLLBACK\n"
      "container_id: \"id-1\"\n",
      Decoded(fake.Requests().at(0), "RUNACOTruststoreUpdateReportTSCStatusV1",
              "RUNA_CO_TruststoreUpdateReportTSCStatus_v1.proto"));
}

}  // namespace
}  // namespace truststore_update_client
