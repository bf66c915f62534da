#include "tests/integration/HostileServers.h"

#include <chrono>
#include <random>
#include <string_view>
#include <utility>

namespace tests {
namespace {

using namespace std::string_literals;

// Results of ContainerConnection::GetContainer and of OcspConnection::CheckCertificate.
constexpr unsigned int kReceived = 0;
constexpr unsigned int kFailed = 1;
constexpr unsigned int kNothingNew = 2;
constexpr int kFinal = 1;
constexpr int kTryAgain = 3;

const std::string kOk = "HTTP/1.1 200 OK\r\n\r\n";

/// A container "abc" as the backend sends it, and bytes that are no message at all.
const std::string kMessage =
    "\x0a\x03"
    "abc"s;
const std::string kGarbage = "\xff\xff\xff"s;

std::string UnexpectedLine(int status) {
  return "error: Unexpected HTTP response: " + std::to_string(status) + "!";
}

/// The answer has no status: somebody else, or nobody.
HostileServer NoStatus(std::string name, PeerScript script) {
  return {std::move(name), std::move(script),   "0, 0 bytes",
          kFailed,         {UnexpectedLine(0)}, kTryAgain};
}

/// The answer has a status that means no container.
HostileServer Status(std::string name, std::string answer, int status, std::size_t bytes) {
  return {std::move(name),
          Answer(std::move(answer)),
          std::to_string(status) + ", " + std::to_string(bytes) + " bytes",
          kFailed,
          {UnexpectedLine(status)},
          kFinal};
}

/// The answer claims to be HTTP and has no number where the status should be.
HostileServer NoNumber(std::string name, std::string answer) {
  return {std::move(name),
          Answer(std::move(answer)),
          "throws",
          kFailed,
          {"error: Exchange for 'RUNA-TruststoreUpdate.CORequestTSC' failed: stoi"},
          kFinal};
}

/// The answer is 200 with a body that is no message.
HostileServer NoMessage(std::string name, PeerScript script, std::size_t bytes) {
  return {std::move(name),
          std::move(script),
          "200, " + std::to_string(bytes) + " bytes",
          kFailed,
          {"info: Error: Unable to parse Download Response!"},
          kFinal};
}

/// Odd, but the container arrives. No answer about a certificate looks like this.
HostileServer Arrives(std::string name, PeerScript script, std::size_t bytes) {
  return {
      std::move(name), std::move(script), "200, " + std::to_string(bytes) + " bytes", kReceived, {},
      kFinal};
}

/// No stream comes to be: the connector tells why.
HostileServer NoStream(std::string name, PeerScript script, int status, const std::string& reason) {
  return {std::move(name),
          std::move(script),
          "result 1",
          kFailed,
          {"error: libLumoConnectorShared: cannot connect to 127.0.0.1:PORT for "
           "RUNA-TruststoreUpdate.CORequestTSC: " +
               reason,
           "error: HttpConnection: Connection not established. Status: " + std::to_string(status),
           "error: HttpConnection: Connection failed!"},
          kTryAgain};
}

/// As `server`, which ends by saying no more.
HostileServer Silent(HostileServer server) {
  server.fallsSilent = true;
  return server;
}

/// As `server`, but the connector closes it.
HostileServer Closed(HostileServer server, const std::string& reason) {
  server.lines.insert(server.lines.begin(),
                      "warning: libLumoConnectorShared: closed 127.0.0.1:PORT for "
                      "RUNA-TruststoreUpdate.CORequestTSC: " +
                          reason);
  return server;
}

HostileServer TooLong(HostileServer server) {
  return Closed(std::move(server), "the answer is longer than 1048576 bytes");
}

HostileServer TooSlow(HostileServer server) {
  server.exchangeSeconds = 1;
  server.post = "200, [0-9]+ bytes";
  return Closed(std::move(server), "it takes longer than 1 s");
}

HostileServer Tls(HostileServer server) {
  server.isTls = true;
  return server;
}

/// Reads the request, sends `bytes` and then plays `end`.
PeerScript Then(std::string bytes, void (*end)(PeerStream&)) {
  return [answer = std::move(bytes), end](PeerStream& peer) {
    peer.ReadRequest();
    peer.SendInPieces(answer, answer.size());  // has arrived before the end does
    end(peer);
  };
}

/// Reads the request, sends `begin` and then `more` for ever.
PeerScript Forever(std::string begin, std::string more) {
  return [first = std::move(begin), rest = std::move(more)](PeerStream& peer) {
    peer.ReadRequest();
    peer.Send(first);
    peer.SendForever(rest);
  };
}

PeerScript Slowly(std::string bytes) {
  return [answer = std::move(bytes)](PeerStream& peer) {
    peer.ReadRequest();
    peer.SendSlowly(answer, std::chrono::milliseconds(5));
  };
}

void Hold(PeerStream& peer) {
  peer.WaitForClose();
}

void Close(PeerStream& peer) {
  peer.Close();
}

void Reset(PeerStream& peer) {
  peer.Reset();
}

std::string RandomBytes(std::size_t count) {
  std::mt19937 numbers(1);  // NOLINT: the same ones each time
  std::string bytes;
  while (bytes.size() < count) bytes += static_cast<char>(numbers() & 0xff);
  return bytes;
}

std::string Repeated(std::string_view piece, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

/// Before there is an answer.
std::vector<HostileServer> BeforeTheAnswer() {
  return {
      NoStream("NobodyListens", nullptr, 111, "Connection refused"),
      NoStatus("ClosesAtOnce", Close),
      NoStatus("ResetsWithinRequest",
               [](PeerStream& peer) {
                 peer.ReadBytes(20);
                 peer.Reset();
               }),
      NoStatus("ClosesWithRequestUnread", [](PeerStream& peer) { peer.ReadBytes(1); }),
      NoStatus("ResetsAfterRequest", Then("", Reset)),
      NoStatus("ClosesAfterRequest", Answer("")),
      NoStatus("ClosesItsHalfAtOnce",
               [](PeerStream& peer) {
                 peer.CloseWriting();
                 peer.WaitForClose();
               }),
      Silent(NoStatus("NeverReadsNorAnswers", [](PeerStream& peer) { peer.WaitForHangUp(); })),
      Silent(NoStatus("NeverAnswers", Then("", Hold))),
      Arrives(
          "AnswersBeforeTheRequest",
          [](PeerStream& peer) {
            peer.Send(kOk + kMessage);
            peer.ReadRequest();
          },
          kMessage.size()),
  };
}

/// The first line of the answer is none of HTTP/1.1, or has no status that means anything.
std::vector<HostileServer> StatusLines() {
  return {
      NoStatus("OnlyALineEnd", Answer("\r\n")),
      NoStatus("OnlyABlankLine", Answer("\r\n\r\n")),
      NoStatus("BlankLineFirst", Answer("\r\n\r\n" + kOk)),
      NoStatus("OldProtocolWithoutHeader", Answer("<html><body>hello</body></html>")),
      NoStatus("LowerCase", Answer("http/1.1 200 OK\r\n\r\n" + kMessage)),
      NoStatus("BlankFirst", Answer(" HTTP/1.1 200 OK\r\n\r\n" + kMessage)),
      NoStatus("MailServer", Answer("220 mail.example ESMTP\r\n")),
      NoStatus("ShellServer", Answer("SSH-2.0-x\r\n")),
      NoStatus("PlainTlsAlert", Answer("\x15\x03\x01\x00\x02\x02\x28"s)),
      NoStatus("Broker", Answer("\x20\x02\x00\x00"s)),
      NoStatus("RandomBytes", Answer(RandomBytes(65536))),
      NoStatus("NulBytes", Answer(std::string(1000, '\0'))),
      NoNumber("OnlyTheProtocol", "HTTP"),
      NoNumber("NoNumber", "HTTP/1.1 OK\r\n\r\n" + kMessage),
      NoNumber("NoBlank", "HTTP/1.1\t200\tOK\r\n\r\n" + kMessage),
      NoNumber("BlankLineAfterTheProtocol", "HTTP/1.1\r\n\r\n" + kMessage),
      NoNumber("FourBlanks", "HTTP/1.1    200 OK\r\n\r\n"),
      NoNumber("MegabyteWithoutBlank", "HTTP/" + std::string(1000000, '1')),
      Status("MegabyteBeforeTheNumber", "HTTP/" + std::string(1000000, '1') + " 404\r\n\r\n", 404,
             0),
      Status("NegativeNumber", "HTTP/1.1 -200 OK\r\n\r\n", 255, 0),
      Status("HugeNumber", "HTTP/1.1 99999999999999999999 OK\r\n\r\n", 255, 0),
      Status("NumberZero", "HTTP/1.1 000 OK\r\n\r\n", 255, 0),
      Status("LettersInTheNumber", "HTTP/1.1 2OO OK\r\n\r\n" + kMessage, 255, kMessage.size()),
      Status("UnknownNumber", "HTTP/1.1 299 Odd\r\n\r\n", 255, 0),
      Status("InterimAnswerFirst", "HTTP/1.1 100 Continue\r\n\r\n" + kOk, 100, kOk.size()),
      Status("Redirected", "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\n\r\n", 302, 0),
      Status("Unauthorized", "HTTP/1.1 401 Unauthorized\r\n\r\n", 401, 0),
      Status("ServerError", "HTTP/1.1 500 Internal Server Error\r\n\r\nsorry", 500, 5),
      Status("TryLater", "HTTP/1.1 503 Busy\r\nRetry-After: 9999999\r\n\r\n", 503, 0),
  };
}

/// The header is too long, does not end, or lies.
std::vector<HostileServer> Headers() {
  const std::string flood = Repeated("A: b\r\n", 100000);
  return {
      Arrives("HeaderFlood", Answer("HTTP/1.1 200 OK\r\n" + flood + "\r\n" + kMessage),
              kMessage.size()),
      Arrives("LongHeaderLine",
              Answer("HTTP/1.1 200 OK\r\nA: " + std::string(900000, 'b') + "\r\n\r\n" + kMessage),
              kMessage.size()),
      TooLong(NoMessage("EndlessHeader", Forever("HTTP/1.1 200 OK\r\n", flood), kAnswerLimit - 3)),
      TooLong(NoMessage("EndlessHeaderLine", Forever("HTTP/1.1 200 OK\r\nA: ", "bbbbbbbb"),
                        kAnswerLimit - 3)),
      {"NoHeaderEnd",
       Answer("HTTP/1.1 204 No Content\r\nA: b\r\n"),
       "204, 28 bytes",
       kNothingNew,
       {},
       kFinal},
      NoMessage("LineFeedsOnly", Answer("HTTP/1.1 200 OK\nA: b\n\nxyz"), 22),
      NoMessage("ResetWithinHeader", Then("HTTP/1.1 200 OK\r\nA: b", Reset), 18),
      Silent(NoMessage("SilenceWithinHeader", Then("HTTP/1.1 200 OK\r\nA: b", Hold), 18)),
      TooSlow(NoMessage("SlowHeader", Slowly("HTTP/1.1 200 OK\r\n" + flood), 0)),
      Arrives("NegativeLength", Answer("HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n" + kMessage),
              kMessage.size()),
      Arrives(
          "TwoLengths",
          Answer("HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n" + kMessage),
          kMessage.size()),
      Arrives("HugeLength",
              Answer("HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n" + kMessage),
              kMessage.size()),
  };
}

/// The body is too long, ends too early, or is no message.
std::vector<HostileServer> Bodies() {
  const std::string rest(kAnswerLimit - kOk.size(), '\xff');
  return {
      Arrives("NoBody", Answer(kOk), 0),
      {"NoContentWithBody",
       Answer("HTTP/1.1 204 No Content\r\n\r\n" + kMessage),
       "204, 5 bytes",
       kNothingNew,
       {},
       kFinal},
      Arrives(
          "ByteByByte",
          [](PeerStream& peer) {
            peer.ReadRequest();
            peer.SendInPieces(kOk + kMessage, 1);
          },
          kMessage.size()),
      Silent(Arrives("KeepsOpen", Then(kOk + kMessage, Hold), kMessage.size())),
      Arrives("ResetAfterAnswer", Then(kOk + kMessage, Reset), kMessage.size()),
      NoMessage("GarbageMessage", Answer(kOk + kGarbage), kGarbage.size()),
      NoMessage("RandomMessage", Answer(kOk + RandomBytes(65536)), 65536),
      NoMessage("CutMessage", Answer(kOk + kMessage.substr(0, 4)), 4),
      NoMessage("ShorterThanItsLength",
                Answer("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n" + kMessage.substr(0, 4)), 4),
      NoMessage("LongerThanItsLength",
                Answer("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n" + kMessage + kGarbage), 8),
      NoMessage("Chunked",
                Answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n" + kMessage +
                       "\r\n0\r\n\r\n"),
                15),
      NoMessage("Compressed",
                Answer("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n\x1f\x8b\x08" +
                       std::string(20, '\xff')),
                23),
      NoMessage("TwoAnswers", Answer(kOk + kMessage + kOk), kMessage.size() + kOk.size()),
      NoMessage("ResetWithinBody", Then(kOk + kMessage.substr(0, 4), Reset), 4),
      Silent(NoMessage("SilenceWithinBody", Then(kOk + kMessage.substr(0, 4), Hold), 4)),
      TooSlow(NoMessage("SlowBody", Slowly(kOk + std::string(kAnswerLimit, '\xff')), 0)),
      NoMessage("AsLongAsAllowed", Answer(kOk + rest), rest.size()),
      TooLong(NoMessage("OneByteTooLong", Answer(kOk + rest + "\xff"), rest.size())),
      TooLong(NoMessage("Endless", Forever(kOk, std::string(65536, '\xff')), rest.size())),
  };
}

/// Reads the client's first TLS record (RFC 8446 section 5.1), sends `bytes` and then plays `end`.
PeerScript AfterHello(std::string bytes, void (*end)(PeerStream&)) {
  return [answer = std::move(bytes), end](PeerStream& peer) {
    const std::string head = peer.ReadBytes(5);
    if (head.size() < 5) return;
    const auto byteAt = [&head](std::size_t at) {
      return static_cast<std::size_t>(static_cast<unsigned char>(head[at]));
    };
    peer.ReadBytes(byteAt(3) * 256 + byteAt(4));
    peer.Send(answer);
    end(peer);
  };
}

/// TLS never comes to be.
std::vector<HostileServer> Handshakes() {
  HostileServer silent = NoStream("TlsSilent", AfterHello("", Hold), 110, "timed out");
  silent.exchangeSeconds = 1;
  return {
      Tls(NoStream("TlsAtAPlainServer", AfterHello("HTTP/1.1 400 Bad\r\n\r\n", Hold), 71,
                   "it does not speak TLS")),
      Tls(NoStream("TlsRandomBytes", AfterHello(RandomBytes(4096), Hold), 71,
                   "it does not speak TLS")),
      Tls(NoStream(
          "TlsAlert", AfterHello("\x15\x03\x03\x00\x02\x02\x28"s, Hold), 71,
          "it refuses the handshake: no common cipher, or a client certificate is missing")),
      Tls(NoStream("TlsClosed", AfterHello("", Close), 71, "it closed the connection")),
      Tls(NoStream("TlsReset", AfterHello("", Reset), 104, "Connection reset by peer")),
      Tls(std::move(silent)),
  };
}

}  // namespace

std::vector<HostileServer> HostileServers() {
  std::vector<HostileServer> all;
  for (auto part : {BeforeTheAnswer, StatusLines, Headers, Bodies, Handshakes}) {
    for (HostileServer& server : part()) all.push_back(std::move(server));
  }
  return all;
}

}  // namespace tests
