#include "csa_common/HttpProtocol.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace csa_common {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// A protocol with every text option set.
HttpProtocol FullProtocol() {
  HttpProtocol protocol;
  protocol.SetOption(HttpOption::RequestTarget, "/a/b?c=d");
  protocol.SetOption(HttpOption::Host, "backend.example");
  protocol.SetOption(HttpOption::Connection, "close");
  protocol.SetOption(HttpOption::ContentType, "application/x");
  protocol.SetOption(HttpOption::Authorization, "Bearer token");
  protocol.SetOption(HttpOption::Accept, "application/y");
  protocol.SetOption(HttpOption::Payload, "body");
  return protocol;
}

/// What a fresh protocol says after `response`, in one text: "STATUS|HEADER|PAYLOAD".
std::string Parsed(const std::string& response) {
  HttpProtocol protocol;
  protocol.ParseResponse(response);
  return std::to_string(protocol.ResponseStatusCode()) + "|" + protocol.ResponseHeader() + "|" +
         protocol.ResponsePayload();
}

TEST(HttpProtocol, Fresh_NoResponseAndNoPayload) {
  const HttpProtocol protocol;
  EXPECT_EQ(protocol.ResponseStatusCode(), 0);
  EXPECT_EQ(protocol.ResponseHeader(), "");
  EXPECT_EQ(protocol.ResponsePayload(), "");
  EXPECT_EQ(protocol.RequestPayload(), "");
  EXPECT_EQ(protocol.RequestHeader(), "");
}

TEST(HttpProtocol, GetWithTargetAndHost_DefaultsOnly) {
  HttpProtocol protocol;
  protocol.SetOption(HttpOption::RequestTarget, "/x");
  protocol.SetOption(HttpOption::Host, "h");
  EXPECT_EQ(protocol.GET(),
            "GET /x HTTP/1.1\r\nHost: h\r\nContent-Type: text/html\r\nContent-Length: 0\r\n\r\n");
}

TEST(HttpProtocol, NothingSet_TargetStaysEmpty) {
  EXPECT_EQ(HttpProtocol().GET(),
            "GET  HTTP/1.1\r\nContent-Type: text/html\r\nContent-Length: 0\r\n\r\n");
}

TEST(HttpProtocol, GetWithEverything_LinesInOrderThenBody) {
  EXPECT_EQ(FullProtocol().GET(),
            "GET /a/b?c=d HTTP/1.1\r\nHost: backend.example\r\nContent-Type: application/x\r\n"
            "Accept: application/y\r\nAuthorization: Bearer token\r\nConnection: close\r\n"
            "Content-Length: 4\r\n\r\nbody");
}

TEST(HttpProtocol, PostWithEverything_LinesInOrderThenBody) {
  EXPECT_EQ(FullProtocol().POST(),
            "POST /a/b?c=d HTTP/1.1\r\nHost: backend.example\r\nContent-Type: application/x\r\n"
            "Accept: application/y\r\nAuthorization: Bearer token\r\nConnection: close\r\n"
            "Content-Length: 4\r\n\r\nbody");
}

TEST(HttpProtocol, Put_AsksBeforeBodyAndNeverAuthorizes) {
  EXPECT_EQ(FullProtocol().PUT(),
            "PUT /a/b?c=d HTTP/1.1\r\nHost: backend.example\r\nContent-Type: application/x\r\n"
            "Accept: application/y\r\nExpect: 100-continue\r\nConnection: close\r\n"
            "Content-Length: 4\r\n\r\n");
}

TEST(HttpProtocol, PutNoExpectContinue_BodyAtOnceAndNeverAuthorizes) {
  HttpProtocol protocol = FullProtocol();
  protocol.SetOption(HttpOption::NoExpectContinue);
  EXPECT_EQ(protocol.PUT(),
            "PUT /a/b?c=d HTTP/1.1\r\nHost: backend.example\r\nContent-Type: application/x\r\n"
            "Accept: application/y\r\nConnection: close\r\nContent-Length: 4\r\n\r\nbody");
}

TEST(HttpProtocol, NoExpectContinue_ChangesNoPost) {
  HttpProtocol protocol = FullProtocol();
  protocol.SetOption(HttpOption::NoExpectContinue);
  EXPECT_EQ(protocol.POST(), FullProtocol().POST());
}

TEST(HttpProtocol, ContentLengthSet_WrittenAsItIs) {
  HttpProtocol protocol = FullProtocol();
  protocol.SetOption(HttpOption::ContentLength, "12");
  EXPECT_THAT(protocol.POST(), HasSubstr("\r\nContent-Length: 12\r\n\r\nbody"));
}

TEST(HttpProtocol, ContentLengthEmpty_NoLine) {
  HttpProtocol protocol = FullProtocol();
  protocol.SetOption(HttpOption::ContentLength, "");
  EXPECT_THAT(protocol.POST(), Not(HasSubstr("Content-Length")));
}

TEST(HttpProtocol, PlaceholderWithMore_WrittenAsItIs) {
  HttpProtocol protocol;
  protocol.SetOption(HttpOption::ContentLength, "__actual__ ");
  EXPECT_THAT(protocol.POST(), HasSubstr("\r\nContent-Length: __actual__ \r\n"));
}

TEST(HttpProtocol, BinaryPayload_EveryByteSentAndCounted) {
  HttpProtocol protocol;
  const std::string payload("\0\r\n\r\n\xff", 6);
  protocol.SetOption(HttpOption::Payload, payload);
  EXPECT_EQ(protocol.POST(),
            "POST  HTTP/1.1\r\nContent-Type: text/html\r\nContent-Length: 6\r\n\r\n" + payload);
  EXPECT_EQ(protocol.RequestPayload(), payload);
}

TEST(HttpProtocol, RequestHeader_EndsAtBlankLine) {
  HttpProtocol protocol = FullProtocol();
  const std::string request = protocol.POST();
  EXPECT_EQ(protocol.RequestHeader() + "body", request);
}

TEST(HttpProtocol, SetDefaultValues_OptionsResetAndResponseKept) {
  HttpProtocol protocol = FullProtocol();
  protocol.SetOption(HttpOption::NoExpectContinue);
  protocol.SetOption(HttpOption::ContentLength, "1");
  protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
  protocol.SetDefaultValues();
  EXPECT_EQ(protocol.PUT(), HttpProtocol().PUT());
  EXPECT_EQ(protocol.RequestPayload(), "");
  EXPECT_EQ(protocol.ResponseStatusCode(), 200);
  EXPECT_EQ(protocol.ResponseHeader(), "HTTP/1.1 200 OK");
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
}

TEST(HttpProtocol, SetDefaultValues_BodiesAreKeptAgain) {
  HttpProtocol protocol;
  protocol.SetOption(HttpOption::HeaderOnly);
  protocol.SetDefaultValues();
  protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
}

TEST(HttpProtocol, TextForFlagOrForNoOption_Ignored) {
  for (const int value : {0, 1, 10, 11, 255}) {
    HttpProtocol protocol;
    protocol.SetOption(static_cast<HttpOption>(value), "text");
    EXPECT_EQ(protocol.PUT(), HttpProtocol().PUT()) << value;
    protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
    EXPECT_EQ(protocol.ResponsePayload(), "abc") << value;
  }
}

TEST(HttpProtocol, FlagForTextOrForNoOption_Ignored) {
  for (const int value : {0, 2, 3, 4, 5, 6, 7, 8, 9, 11, 255}) {
    HttpProtocol protocol = FullProtocol();
    protocol.SetOption(static_cast<HttpOption>(value));
    EXPECT_EQ(protocol.PUT(), FullProtocol().PUT()) << value;
    protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
    EXPECT_EQ(protocol.ResponsePayload(), "abc") << value;
  }
}

TEST(HttpProtocol, ParseResponse_SplitAtFirstBlankLine) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"HTTP/1.1 200 OK\r\n\r\nabc", "200|HTTP/1.1 200 OK|abc"},
      {"HTTP/1.1 200 OK\r\n\r\n", "200|HTTP/1.1 200 OK|"},
      {"HTTP/1.1 200 OK\r\nA: b\r\n\r\nc\r\n\r\nd", "200|HTTP/1.1 200 OK\r\nA: b|c\r\n\r\nd"},
      {"HTTP/1.0 503 \r\n\r\nx", "503|HTTP/1.0 503 |x"},
      {"HTTP 204\r\n\r\n", "204|HTTP 204|"},
      {"HTTPS 200\r\n\r\nx", "200|HTTPS 200|x"},
      {"HTTP/1.1 200\n\nabc", "200|HTTP/1.1 200\n\nabc|P/1.1 200\n\nabc"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n",
       "200|HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked|3\r\nabc\r\n0\r\n\r\n"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nabc",
       "200|HTTP/1.1 200 OK\r\nContent-Length: 1|abc"},
      // Whatever stands before it, the number follows the first blank.
      {"HTTP\r\nServer: 204 x", "204|HTTP\r\nServer: 204 x|P\r\nServer: 204 x"},
      {"HTTP/1.1\r\n\r\n 200", "200|HTTP/1.1| 200"},
      // No blank line: the response less its first three characters.
      {"HTTP/1.1 204 No Content", "204|HTTP/1.1 204 No Content|P/1.1 204 No Content"},
  };
  for (const auto& [response, expected] : cases) EXPECT_EQ(Parsed(response), expected) << response;
}

TEST(HttpProtocol, ParseResponse_NumbersAsTheConversionReadsThem) {
  const std::vector<std::pair<std::string, std::uint16_t>> cases{
      {"20", 255},  {"2", 255},    {"2xx", 255},  {"20x", 255}, {" 20", 255}, {"\t20", 255},
      {"+20", 255}, {"-1", 255},   {"-99", 255},  {"000", 255}, {"999", 255}, {"0200", 255},
      {"200", 200}, {"2000", 200}, {"204x", 204}, {"255", 255},
  };
  for (const auto& [number, expected] : cases) {
    HttpProtocol protocol;
    protocol.ParseResponse("HTTP/1.1 " + number + "\r\n\r\n");
    EXPECT_EQ(protocol.ResponseStatusCode(), expected) << number;
  }
}

TEST(HttpProtocol, EveryStatus_KnownOnesStayAllOthersUnknown) {
  const auto isKnown = [](int status) {
    return status == 100 || status == 101 || (status >= 200 && status <= 206) ||
           (status >= 301 && status <= 305) || status == 307 || (status >= 400 && status <= 417) ||
           (status >= 500 && status <= 505);
  };
  for (int status = 0; status <= 999; ++status) {
    HttpProtocol protocol;
    protocol.ParseResponse("HTTP/1.1 " + std::to_string(status) + " X\r\n\r\n");
    EXPECT_EQ(protocol.ResponseStatusCode(), isKnown(status) ? status : 255) << status;
  }
}

TEST(HttpProtocol, NoNumber_ThrowsInvalidArgument) {
  for (const std::string response : {"HTTP/1.1 OK\r\n\r\nabc", "HTTP/1.1", "HTTP", "HTTP/1.1 ",
                                     "HTTP/1.1 \r\n\r\n200", "HTTP/1.1  OK", "HTTP/1.1 -x\r\n\r\n",
                                     "HTTP/1.1    200", "HTTP/1.1 x200", "HTTP/1.1 --1"}) {
    HttpProtocol protocol;
    try {
      protocol.ParseResponse(response);
      ADD_FAILURE() << response;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "stoi") << response;
    }
  }
}

TEST(HttpProtocol, NoNumber_HeaderSetStatusKeptPayloadEmpty) {
  HttpProtocol protocol;
  protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
  EXPECT_THROW(protocol.ParseResponse("HTTP/1.1 OK\r\n\r\ndef"), std::invalid_argument);
  EXPECT_EQ(protocol.ResponseStatusCode(), 200);
  EXPECT_EQ(protocol.ResponseHeader(), "HTTP/1.1 OK");
  EXPECT_EQ(protocol.ResponsePayload(), "");
}

TEST(HttpProtocol, NotHttp_StatusKeptAndPayloadEmpty) {
  for (const std::string response : {"", "HTT", "http/1.1 404 x\r\n\r\nabc", " HTTP/1.1 404",
                                     "\r\n\r\nHTTP/1.1 404 x", "220 mail\r\n\r\nabc"}) {
    HttpProtocol protocol;
    protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nbefore");
    protocol.ParseResponse(response);
    EXPECT_EQ(protocol.ResponseStatusCode(), 200) << response;
    EXPECT_EQ(protocol.ResponsePayload(), "") << response;
    EXPECT_EQ(protocol.ResponseHeader(), response.substr(0, response.find("\r\n\r\n")));
  }
}

TEST(HttpProtocol, HeaderOnly_StatusWithoutPayload) {
  HttpProtocol protocol;
  protocol.SetOption(HttpOption::HeaderOnly);
  protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
  EXPECT_EQ(protocol.ResponseStatusCode(), 200);
  EXPECT_EQ(protocol.ResponseHeader(), "HTTP/1.1 200 OK");
  EXPECT_EQ(protocol.ResponsePayload(), "");
}

TEST(HttpProtocol, SecondResponse_ReplacesFirst) {
  HttpProtocol protocol;
  protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nabc");
  protocol.ParseResponse("HTTP/1.1 404 Not Found\r\n\r\n");
  EXPECT_EQ(protocol.ResponseStatusCode(), 404);
  EXPECT_EQ(protocol.ResponseHeader(), "HTTP/1.1 404 Not Found");
  EXPECT_EQ(protocol.ResponsePayload(), "");
}

TEST(HttpProtocol, OwnPayloadParsedAgain_ReadAsAnyResponse) {
  HttpProtocol protocol;
  protocol.ParseResponse("HTTP/1.1 200 OK\r\n\r\nHTTP/1.1 404 X\r\n\r\nabc");
  protocol.ParseResponse(protocol.ResponsePayload());
  EXPECT_EQ(protocol.ResponseStatusCode(), 404);
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
}

TEST(HttpProtocol, MovedResponse_PayloadTakesItsMemoryOver) {
  HttpProtocol protocol;
  std::string response = "HTTP/1.1 200 OK\r\n\r\n" + std::string(1 << 20, 'x');
  const char* const memory = response.data();
  protocol.ParseResponse(std::move(response));
  EXPECT_EQ(protocol.ResponsePayload().data(), memory);
  EXPECT_EQ(protocol.ResponsePayload(), std::string(1 << 20, 'x'));
}

}  // namespace
}  // namespace csa_common
