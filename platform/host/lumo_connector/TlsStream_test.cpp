#include "platform/host/lumo_connector/TlsStream.h"

#include <gmock/gmock.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "platform/host/lumo_connector/PeerSocket.h"
#include "support/WorkerThread.h"
#include "tests/support/Files.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"

namespace platform_host {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using Outcome = StreamStep::Outcome;

std::string Pki(const std::string& name) {
  return tests::PkiPath("tls/" + name);
}

/// A server of the TLS library on a thread of its own: one connection, then what the test wants.
class TlsServer {
 public:
  using Talk = std::function<void(SSL*)>;

  TlsServer(const std::string& party, Talk talk)
      : context(::SSL_CTX_new(::TLS_server_method()), &::SSL_CTX_free) {
    ::SSL_CTX_use_certificate_chain_file(context.get(), Pki(party + "/cert.pem").c_str());
    ::SSL_CTX_use_PrivateKey_file(context.get(), Pki(party + "/key.pem").c_str(), SSL_FILETYPE_PEM);
    // The library's own way to a socket raises SIGPIPE where the client has gone.
    thread = support::StartThread("TlsServer", [this, act = std::move(talk)] { Run(act); });
  }
  ~TlsServer() { thread.join(); }
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  [[nodiscard]] std::uint16_t Port() const { return listener.Port(); }
  [[nodiscard]] SSL_CTX* Context() const { return context.get(); }

 private:
  void Run(const Talk& talk) const {
    const auto peer = listener.Accept();
    const std::unique_ptr<SSL, void (*)(SSL*)> session(::SSL_new(context.get()), &::SSL_free);
    ::SSL_set_fd(session.get(), peer.Get());
    if (::SSL_accept(session.get()) == 1) talk(session.get());
  }

  const tests::LoopbackPeer listener;
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context;
  std::thread thread;
};

void Write(SSL* session, const std::string& text) {
  ::SSL_write(session, text.data(), static_cast<int>(text.size()));
}

/// Reads what the client writes, until it ends.
std::string ReadAll(SSL* session) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const int count = ::SSL_read(session, buffer.data(), static_cast<int>(buffer.size()));
    if (count <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

/// A client that trusts the test CA.
class Tls : public ::testing::Test {
 protected:
  Tls() { service.caFile = Pki("ca.pem"); }

  [[nodiscard]] Connected<std::unique_ptr<PeerStream>> Open(const std::string& host,
                                                            std::uint16_t port) const {
    const ConnectWait wait(&steady_clock::now, steady_clock::now() + tests::kDeadline, stop.Get());
    auto socket = ConnectTo("127.0.0.1", port, wait);
    auto context = TlsContext::Load(HostConfig{}, service);
    return TlsStream::Open(std::move(std::get<PeerSocket>(socket).descriptor), host,
                           std::get<TlsContext>(context), wait);
  }

  /// The stream to a good peer; null after a failure.
  [[nodiscard]] std::unique_ptr<PeerStream> MustOpen(std::uint16_t port) const {
    auto opened = Open("localhost", port);
    auto* const failure = std::get_if<ConnectFailure>(&opened);
    EXPECT_EQ(failure, nullptr) << failure->reason;
    return failure == nullptr ? std::get<std::unique_ptr<PeerStream>>(std::move(opened)) : nullptr;
  }

  /// Why `party` is refused as `host`; empty when it is not.
  [[nodiscard]] std::string RefusalOf(const std::string& party, const std::string& host) const {
    const TlsServer server(party, [](SSL* session) { ReadAll(session); });
    const auto opened = Open(host, server.Port());
    const auto* const failure = std::get_if<ConnectFailure>(&opened);
    if (failure == nullptr) return "";
    EXPECT_EQ(failure->status, EACCES);
    return failure->reason;
  }

  /// Reads to the end or a failure, which `last` then holds.
  std::string ReadStream(PeerStream& stream) {
    std::string text;
    for (;;) {
      last = stream.Read(buffer.data(), buffer.size());
      if (last.outcome == Outcome::kMoved) {
        text.append(buffer.data(), last.bytes);
      } else if (last.outcome != Outcome::kWait || !tests::WaitFor(stream.Descriptor(), POLLIN)) {
        return text;
      }
    }
  }

  const support::UniqueFd stop{::eventfd(0, EFD_CLOEXEC)};
  ServiceConfig service;
  std::vector<char> buffer = std::vector<char>(131072);
  StreamStep last{Outcome::kWait, 0, 0, ""};
};

TEST_F(Tls, NameOrAddressOfTheCertificate_Accepted) {
  for (const char* host : {"localhost", "LOCALHOST", "localhost.", "127.0.0.1"}) {
    EXPECT_EQ(RefusalOf("good", host), "") << host;
  }
}

TEST_F(Tls, OtherNameOrAddress_Refused) {
  EXPECT_EQ(RefusalOf("good", "other.example"), "its certificate is for another name");
  EXPECT_EQ(RefusalOf("good", "localhost.example"), "its certificate is for another name");
  EXPECT_EQ(RefusalOf("good", "127.0.0.2"), "its certificate is for another address");
  EXPECT_EQ(RefusalOf("good", "::1"), "its certificate is for another address");
  EXPECT_EQ(RefusalOf("wrong-name", "localhost"), "its certificate is for another name");
}

TEST_F(Tls, NameInTheSubjectOnly_Refused) {
  EXPECT_EQ(RefusalOf("subject-only", "localhost"), "its certificate is for another name");
}

TEST_F(Tls, Wildcard_StandsForOneWholeLabel) {
  const std::string other = "its certificate is for another name";
  EXPECT_EQ(RefusalOf("wildcard", "a.whole.example"), "");
  EXPECT_EQ(RefusalOf("wildcard", "a.b.whole.example"), other);
  EXPECT_EQ(RefusalOf("wildcard", "whole.example"), other);
  EXPECT_EQ(RefusalOf("wildcard", "bar.part.example"), other);
}

TEST_F(Tls, OutOfItsTime_Refused) {
  EXPECT_EQ(RefusalOf("expired", "localhost"), "a certificate of its chain has expired");
  EXPECT_EQ(RefusalOf("not-yet", "localhost"), "a certificate of its chain is not valid yet");
}

TEST_F(Tls, UnknownCa_Refused) {
  EXPECT_EQ(RefusalOf("unknown-ca", "localhost"),
            "its certificate was issued by no CA of " + service.caFile);
}

TEST_F(Tls, IntermediateAsAnchor_Accepted) {
  EXPECT_EQ(RefusalOf("intermediate", "localhost"), "");
  service.caFile = Pki("intermediate.pem");
  EXPECT_EQ(RefusalOf("intermediate", "localhost"), "");
}

TEST_F(Tls, EmptyName_NeverUnchecked) {
  for (const char* host : {"", "."}) {
    const tests::LoopbackPeer peer;
    const auto opened = Open(host, peer.Port());
    ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened));
    EXPECT_EQ(std::get<ConnectFailure>(opened).status, EINVAL);
  }
}

TEST_F(Tls, Bytes_BothWays) {
  std::string received;
  std::string answer(1000000, 'a');
  {
    const TlsServer server("good", [&](SSL* session) {
      Write(session, answer);
      received = ReadAll(session);
    });
    const auto stream = MustOpen(server.Port());
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->Write("request", 7).bytes, 7U);
    stream->EndWriting();
    EXPECT_EQ(ReadStream(*stream), answer);
  }
  EXPECT_EQ(received, "request");
}

TEST_F(Tls, NothingThere_WaitsForInput) {
  const TlsServer server("good", [](SSL* session) { ReadAll(session); });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  auto step = stream->Read(buffer.data(), buffer.size());
  EXPECT_EQ(step.outcome, Outcome::kWait);
  EXPECT_EQ(step.events, POLLIN);
  EXPECT_FALSE(stream->HoldsBytes());
}

TEST_F(Tls, MoreThanTheBuffer_HeldForTheNextRead) {
  const TlsServer server("good", [](SSL* session) {
    Write(session, "0123456789");
    ReadAll(session);
  });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  StreamStep step{Outcome::kWait, 0, 0, ""};
  while (step.outcome == Outcome::kWait && tests::WaitFor(stream->Descriptor(), POLLIN)) {
    step = stream->Read(buffer.data(), 4);
  }
  EXPECT_EQ(step.bytes, 4U);
  EXPECT_TRUE(stream->HoldsBytes());
  EXPECT_EQ(stream->Read(buffer.data(), 10).bytes, 6U);
  EXPECT_FALSE(stream->HoldsBytes());
}

TEST_F(Tls, Goodbye_End) {
  const TlsServer server("good", [](SSL* session) {
    Write(session, "answer");
    ::SSL_shutdown(session);
  });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadStream(*stream), "answer");
  EXPECT_EQ(last.outcome, Outcome::kEnd);
  EXPECT_EQ(stream->Read(buffer.data(), 1).outcome, Outcome::kEnd);
}

TEST_F(Tls, EndWithoutGoodbye_EndAllTheSame) {
  const TlsServer server("good", [](SSL* session) { Write(session, "answer"); });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadStream(*stream), "answer");
  EXPECT_EQ(last.outcome, Outcome::kEnd);
}

TEST_F(Tls, BytesThatAreNoTls_RefusedAndStaysSo) {
  const TlsServer server("good", [](SSL* session) {
    static_cast<void>(tests::SendAll(::SSL_get_fd(session), std::string(100, 'x')));
    ReadAll(session);
  });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadStream(*stream), "");
  EXPECT_EQ(last.outcome, Outcome::kRefused);
  EXPECT_EQ(last.reason, "it does not speak TLS");
  EXPECT_NE(stream->Write("a", 1).outcome, Outcome::kMoved);
}

TEST_F(Tls, BytesThatAreNoTlsBehindAnAnswer_AnswerThenRefused) {
  std::promise<void> sent;
  const TlsServer server("good", [&](SSL* session) {
    Write(session, "answer");
    static_cast<void>(tests::SendAll(::SSL_get_fd(session), std::string(100, 'x')));
    sent.set_value();
    ReadAll(session);
  });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  sent.get_future().wait();
  EXPECT_EQ(ReadStream(*stream), "answer");
  EXPECT_EQ(last.outcome, Outcome::kRefused);
  EXPECT_EQ(last.reason, "it does not speak TLS");
}

TEST_F(Tls, PeerGone_WriteBrokenWithoutSignal) {
  const TlsServer server("good", [](SSL* session) {
    const linger now{1, 0};
    ::setsockopt(::SSL_get_fd(session), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  });
  const auto stream = MustOpen(server.Port());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadStream(*stream), "");
  EXPECT_EQ(last.outcome, Outcome::kBroken);
  EXPECT_EQ(last.reason, "Connection reset by peer");
  EXPECT_EQ(stream->Write("a", 1).outcome, Outcome::kBroken);
  stream->EndWriting();
}

TEST_F(Tls, PeerWithoutTls_Refused) {
  const tests::LoopbackPeer peer;
  std::thread server([&peer] {
    const auto connection = peer.Accept();
    static_cast<void>(tests::SendAll(connection.Get(), "HTTP/1.1 400 Bad Request\r\n\r\n"));
    static_cast<void>(tests::ReadToEnd(connection.Get()));
  });
  const auto opened = Open("localhost", peer.Port());
  server.join();
  ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened));
  EXPECT_EQ(std::get<ConnectFailure>(opened).status, EPROTO);
  EXPECT_EQ(std::get<ConnectFailure>(opened).reason, "it does not speak TLS");
}

/// As where the settings of the system allow ciphers without certificates.
TEST_F(Tls, PeerWithoutCertificate_Refused) {
  constexpr const char* kNoCertificate = "aNULL:@SECLEVEL=0";
  const TlsServer server("good", [](SSL* session) { ReadAll(session); });
  ASSERT_EQ(::SSL_CTX_set_cipher_list(server.Context(), kNoCertificate), 1);
  const auto context = std::get<TlsContext>(TlsContext::Load(HostConfig{}, service));
  ASSERT_EQ(::SSL_CTX_set_cipher_list(context.Get().get(), kNoCertificate), 1);
  ::SSL_CTX_set_max_proto_version(context.Get().get(), TLS1_2_VERSION);
  const ConnectWait wait(&steady_clock::now, steady_clock::now() + tests::kDeadline, stop.Get());
  auto socket = ConnectTo("127.0.0.1", server.Port(), wait);
  const auto opened = TlsStream::Open(std::move(std::get<PeerSocket>(socket).descriptor),
                                      "localhost", context, wait);
  ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened));
  EXPECT_EQ(std::get<ConnectFailure>(opened).status, EACCES);
  EXPECT_EQ(std::get<ConnectFailure>(opened).reason, "it has no certificate");
}

TEST_F(Tls, AnchorAmongOthersAndSeveralTimes_Accepted) {
  const tests::TemporaryDirectory directory;
  service.caFile = directory.Path() + "/ca.pem";
  std::string anchors;
  for (const char* file : {"other-ca.pem", "ca.pem", "ca.pem", "intermediate.pem", "ca.pem"}) {
    anchors += tests::PkiText(std::string("tls/") + file);
  }
  tests::WriteText(service.caFile, anchors);
  EXPECT_EQ(RefusalOf("good", "localhost"), "");
  EXPECT_EQ(RefusalOf("unknown-ca", "localhost"), "");
}

TEST_F(Tls, NameThatBeginsWithADot_StandsForNoOther) {
  for (const char* host : {".example", "..example"}) {
    const TlsServer server("wrong-name", [](SSL* session) { ReadAll(session); });
    const auto opened = Open(host, server.Port());
    ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened)) << host;
    EXPECT_EQ(std::get<ConnectFailure>(opened).status, EINVAL);
    EXPECT_EQ(std::get<ConnectFailure>(opened).reason, "no usable host name");
  }
}

/// The library passes over a HelloRequest within the call that met it (RFC 5246 section 7.4.1.1).
TEST_F(Tls, HelloRequestsWithoutEndInTheHandshake_StopStillEndsTheWait) {
  const tests::LoopbackPeer peer;
  const std::string record = std::string("\x16\x03\x03\x40\x00", 5) + std::string(16384, '\0');
  constexpr int kStopAfter = 256;
  constexpr int kMost = 16384;  // an end all the same, for a client that does not stop
  std::thread server([&] {
    const auto connection = peer.Accept();
    static_cast<void>(tests::ReadUpTo(connection.Get(), 5));
    for (int sent = 0; sent < kMost && tests::SendAll(connection.Get(), record); ++sent) {
      if (sent == kStopAfter) ::eventfd_write(stop.Get(), 1);
    }
  });
  const auto opened = Open("localhost", peer.Port());
  server.join();
  ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened));
  EXPECT_EQ(std::get<ConnectFailure>(opened).status, ECANCELED);
}

TEST_F(Tls, PeerClosesInTheHandshake_Closed) {
  const tests::LoopbackPeer peer;
  std::thread server([&peer] {
    const auto connection = peer.Accept();
    static_cast<void>(tests::ReadUpTo(connection.Get(), 5));
    ::shutdown(connection.Get(), SHUT_WR);
    static_cast<void>(tests::ReadToEnd(connection.Get()));
  });
  const auto opened = Open("localhost", peer.Port());
  ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened));
  EXPECT_EQ(std::get<ConnectFailure>(opened).status, EPROTO);
  EXPECT_EQ(std::get<ConnectFailure>(opened).reason, "it closed the connection");
  server.join();
}

TEST_F(Tls, StopInTheHandshake_Canceled) {
  const tests::LoopbackPeer peer;
  support::UniqueFd connection;  // stays open: a reset would be another failure
  std::thread stopper([&] {
    connection = peer.Accept();
    static_cast<void>(tests::ReadUpTo(connection.Get(), 5));
    ::eventfd_write(stop.Get(), 1);
  });
  const auto opened = Open("localhost", peer.Port());
  stopper.join();
  ASSERT_TRUE(std::holds_alternative<ConnectFailure>(opened));
  EXPECT_EQ(std::get<ConnectFailure>(opened).status, ECANCELED);
}

}  // namespace
}  // namespace platform_host
