#include "tests/matrix/OutageBackend.h"

#include <cerrno>

#include "RUNA_CO_TruststoreUpdateReportTSCStatus_v1.pb.h"
#include "RUNA_CO_TruststoreUpdateRequestTSC_v1.pb.h"
#include "RUNA_CT_TruststoreUpdateResponseTSC_v1.pb.h"
#include "tests/matrix/Patience.h"
#include "tests/support/TestContainer.h"
#include "tests/support/TestPki.h"

namespace tests {
namespace {

constexpr std::uint8_t kNoConnection = 1;
constexpr std::uint8_t kConnected = 2;
constexpr std::int32_t kRefusedStatus = 3;
const std::string kNoMessage = "\xff\xff";

// "NAME OPERATION ..." in parts.
struct Call {
  explicit Call(const std::string& text) {
    const auto nameEnd = text.find(' ');
    name = text.substr(0, nameEnd);
    if (nameEnd == std::string::npos) return;
    const auto operationEnd = text.find(' ', nameEnd + 1);
    operation = text.substr(nameEnd + 1, operationEnd - nameEnd - 1);
    if (operationEnd != std::string::npos) rest = text.substr(operationEnd + 1);
  }

  std::string name;
  std::string operation;
  std::string rest;
};

// The last part of an operation's name is the path that it is served at.
std::string UrlOf(const std::string& operation) {
  return "http://backend.invalid:8080/" + operation.substr(operation.find('.') + 1);
}

std::string BodyOf(const std::string& request) {
  const auto end = request.find("\r\n\r\n");
  return end == std::string::npos ? "" : request.substr(end + 4);
}

bool IsFor(const std::string& request, const std::string& path) {
  return request.compare(0, 6 + path.size(), "POST /" + path) == 0;
}

}  // namespace

OutageBackend::OutageBackend(FakeLumoConnector& fakeConnector, const UpdateCell& updateCell)
    : connector(fakeConnector), cell(updateCell) {
  connector.OnCall([this](const std::string& call) { Prepare(call); });
}

void OutageBackend::Reach(const std::string& phase) {
  if (phase != cell.phase) return;
  {
    const support::MutexLock lock(mutex);
    if (hasBegun) return;
    hasBegun = true;
    isThere = true;
  }
  if (cell.outage == "lost") connector.ReportConnectionState(kNoConnection);
}

void OutageBackend::End() {
  {
    const support::MutexLock lock(mutex);
    isThere = false;
  }
  if (cell.outage == "lost") connector.ReportConnectionState(kConnected);
}

std::vector<OutageBackend::Request> OutageBackend::Downloads() const {
  const support::MutexLock lock(mutex);
  return downloads;
}

std::vector<OutageBackend::Request> OutageBackend::Reports() const {
  const support::MutexLock lock(mutex);
  return reports;
}

// Says, just before the connector answers a call, what it answers.
void OutageBackend::Prepare(const std::string& text) {
  const Call call(text);
  if (call.name == "GetToken") {
    if (Strikes("token")) {
      connector.SetTokenFailure(call.operation, kRefusedStatus);
    } else {
      connector.SetToken(call.operation, "token");
    }
  } else if (call.name == "GetInvocationUrl") {
    if (Strikes("url")) {
      connector.SetUrlFailure(call.operation, kRefusedStatus);
    } else {
      connector.SetUrl(call.operation, UrlOf(call.operation));
    }
  } else if (call.name == "SocketConnect") {
    const bool hasHost = !call.rest.empty() && call.rest.front() != ' ';
    if (!hasHost || Strikes("refused")) {
      connector.RefuseConnect(ECONNREFUSED, "nobody listens");
    } else {
      connector.Connect([this](PeerStream& peer) { PlayPeer(peer); });
    }
  }
}

void OutageBackend::PlayPeer(PeerStream& peer) {
  const std::string request = peer.ReadRequest();
  if (IsFor(request, "CORequestTSC")) {
    Download(peer, BodyOf(request));
  } else if (IsFor(request, "COReportTSCStatus")) {
    Report(peer, BodyOf(request));
  } else {
    Respond(peer);
  }
}

void OutageBackend::Download(PeerStream& peer, const std::string& body) {
  domain::backend::proto::RUNACOTruststoreUpdateRequestTSCV1 message;
  if (!message.ParseFromString(body)) message.set_container_id("not parsed");
  {
    const support::MutexLock lock(mutex);
    downloads.push_back({static_cast<unsigned>(message.renewal_reason()),
                         message.operation_type_id(), message.container_id()});
  }
  Reach("during");
  const std::string due = Message();
  if (!Misbehaves(peer, due)) peer.Send(HttpResponse("200 OK", due));
}

void OutageBackend::Report(PeerStream& peer, const std::string& body) {
  domain::backend::proto::RUNACOTruststoreUpdateReportTSCStatusV1 message;
  if (!message.ParseFromString(body)) message.set_container_id("not parsed");
  {
    const support::MutexLock lock(mutex);
    reports.push_back({static_cast<unsigned>(message.status_code()), "", message.container_id()});
  }
  Hold("report");
  if (Strikes("report")) {
    peer.Send(HttpResponse("403 Forbidden", ""));
  } else if (!Misbehaves(peer, "an answer")) {
    peer.Send(HttpResponse("204 No Content", ""));
  }
}

// Every container of a cell has one signer, of whom the responder is asked.
void OutageBackend::Respond(PeerStream& peer) {
  if (Strikes("ocsp-silent")) {
    BeSilent(peer);
    return;
  }
  const support::MutexLock lock(mutex);
  const std::string signer = signerIsRevoked ? "revoked" : "good";
  peer.Send(HttpResponse("200 OK", PkiText("signers/" + signer + ".response")));
}

bool OutageBackend::Misbehaves(PeerStream& peer, const std::string& dueBody) {
  if (Strikes("silence")) {
    BeSilent(peer);
  } else if (Strikes("cut")) {
    const std::string due = HttpResponse("200 OK", dueBody);
    peer.Send(due.substr(0, due.size() - dueBody.size() / 2));
  } else if (Strikes("204")) {
    peer.Send(HttpResponse("204 No Content", ""));
  } else if (Strikes("500")) {
    peer.Send(HttpResponse("500 Internal Server Error", ""));
  } else if (Strikes("protobuf")) {
    peer.Send(HttpResponse("200 OK", kNoMessage));
  } else {
    return false;
  }
  return true;
}

void OutageBackend::BeSilent(PeerStream& peer) {
  Hold("silence");
  Patience::End();
  peer.WaitForClose();
}

// Where the cell wants it so, an answer waits until the test lets go.
void OutageBackend::Hold(const std::string& kind) {
  events.Add(kind);
  if (cell.at == kind) (void)events.WaitFor("let go");
}

std::string OutageBackend::Message() {
  const bool revoked = Strikes("ocsp-revoked");
  {
    const support::MutexLock lock(mutex);
    signerIsRevoked = revoked;
  }
  TestContainer container(revoked ? "signers/revoked" : "signers/good");
  container.Id("\"" + kOfferedId + "\"");
  if (Strikes("container")) container.SpoilSignature();
  domain::backend::proto::RUNACTTruststoreUpdateResponseTSCV1 message;
  message.set_trust_store_container(container.Build());
  return message.SerializeAsString();
}

bool OutageBackend::Strikes(const std::string& name) {
  const support::MutexLock lock(mutex);
  if (!isThere || name != cell.outage) return false;
  if (cell.then == "recovers") isThere = false;
  return true;
}

}  // namespace tests
