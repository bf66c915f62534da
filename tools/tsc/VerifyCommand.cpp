#include "tools/tsc/VerifyCommand.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string_view>
#include <utility>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/csc_logging/LineFormat.h"
#include "support/FileContents.h"
#include "tools/tsc/Certificates.h"
#include "tools/tsc/ExitCode.h"
#include "tools/tsc/Files.h"
#include "tools/tsc/OcspResponder.h"
#include "tools/tsc/Timestamps.h"
#include "tools/tsc/VerificationFacade.h"

namespace tsc {

using development_tools::DevelopmentTools;
using platform_host::CapturedLog;
using platform_host::Error;
using platform_host::LogLevel;
using platform_host::Result;
namespace tuc = truststore_update_client;

namespace {

struct Meaning {
  tuc::ResponseStatus status;
  const char* text;
};

constexpr std::array<Meaning, 13> kMeanings = {{
    {tuc::kInstalled, "a unit would install it"},
    {tuc::kAlreadyInstalled, "already installed"},
    {tuc::kNotParsed, "not parsed"},
    {tuc::kTimestampInFuture, "timestamp more than 24 hours in the future"},
    {tuc::kRevokedOrSignatureWrong, "signer revoked or revocation unknown, or signature wrong"},
    {tuc::kOlderThanInstalled, "older than the installed container"},
    {tuc::kPathNotValid, "signer chain leads to no root"},
    {tuc::kCommonNameWrong, "signer has the wrong Common Name"},
    {tuc::kBundleNotInstalled, "a bundle could not be installed"},
    {tuc::kPayloadCertificateInvalid, "a payload certificate is not valid"},
    {tuc::kStoresNotRemoved, "trust stores could not be removed"},
    {tuc::kRecordsNotStored, "records could not be stored"},
    {tuc::kProcessingStopped, "processing stopped"},
}};

std::string MeaningOf(tuc::ResponseStatus status) {
  const auto* const found =
      std::find_if(kMeanings.begin(), kMeanings.end(),
                   [status](const Meaning& meaning) { return meaning.status == status; });
  return found == kMeanings.end() ? "unknown" : found->text;
}

std::optional<OcspAnswer> ParseOcsp(const std::string& text) {
  if (text == "none") return OcspAnswer::kNone;
  if (text == "good") return OcspAnswer::kGood;
  if (text == "revoked") return OcspAnswer::kRevoked;
  return std::nullopt;
}

bool IsSwitch(const std::string& key) {
  const auto& all = development_tools::kDevelopmentSwitches;
  return std::any_of(all.begin(), all.end(), [&](const auto& entry) { return key == entry.key; });
}

std::string SwitchNames() {
  std::string names;
  for (const auto& entry : development_tools::kDevelopmentSwitches) {
    names += (names.empty() ? "" : ", ") + std::string(entry.key);
  }
  return names;
}

// The switches are read from a file; this one is in memory only. It must be open while it is read.
Result<DevelopmentTools> SwitchesOn(const std::vector<std::string>& keys) {
  std::string text;
  for (const auto& key : keys) {
    if (!IsSwitch(key)) return Error("--switch " + key + ": not " + SwitchNames());
    text += key + " = true\n";
  }
  const support::UniqueFd file(::memfd_create("switches", MFD_CLOEXEC));
  const int error = file.IsOpen() ? support::WriteAll(file.Get(), text) : errno;
  if (error != 0) return Error::OfErrno(error).WithContext("switches in memory");
  return DevelopmentTools("/proc/self/fd/" + std::to_string(file.Get()));
}

Error NoTimestamp(const std::string& option, const std::string& text) {
  return Error(option + " " + text + ": not " + kTimestampForms);
}

Result<UnitState> StateFrom(const VerifyOptions& options) {
  UnitState state;
  const std::uint32_t now = SecondsNow();
  const auto installed = ParseTimestamp(options.installedTimestamp, now);
  if (!installed.has_value())
    return NoTimestamp("--installed-timestamp", options.installedTimestamp);
  const auto at = ParseTimestamp(options.at, now);
  if (!at.has_value()) return NoTimestamp("--at", options.at);
  const auto ocsp = ParseOcsp(options.ocsp);
  if (!ocsp.has_value()) return Error("--ocsp " + options.ocsp + ": not none, good or revoked");
  if (options.ocspUrl) {
    auto responder = ResponderAt(*options.ocspUrl, options.ocspCa);
    if (!responder.Ok()) return responder.Failure();
    state.responder = std::move(responder).Take();
  }
  state.installedId = options.installedId;
  state.installedTimestamp = *installed;
  state.ocsp = *ocsp;
  // A clock that stands still would find a responder's answer to come from the future.
  if (options.at != "now") {
    state.now = [at] { return std::chrono::system_clock::from_time_t(*at); };
  }
  return state;
}

std::string Printable(const std::string& text) {
  return platform_host::EscapeLine(text, platform_host::kLineLimit);
}

void Tell(tuc::ResponseStatus status, const std::string& id, const CapturedLog& log, bool json,
          std::ostream& out) {
  const auto lines = log.Lines(LogLevel::kInfo);
  if (json) {
    const nlohmann::ordered_json told = {{"status", unsigned{status}},
                                         {"name", tuc::StatusName(status)},
                                         {"meaning", MeaningOf(status)},
                                         {"container_id", id},
                                         {"log", lines}};
    out << told.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
    return;
  }
  for (const auto& line : lines) out << "  " << Printable(line) << '\n';
  out << "status " << unsigned{status} << " (" << tuc::StatusName(status)
      << "): " << MeaningOf(status) << '\n';
}

int Answer(const std::string& container, const UnitState& state, const DevelopmentTools& switches,
           bool json, std::ostream& out) {
  auto facade = std::make_shared<VerificationFacade>(state);
  tuc::ContainerHandler handler(facade, switches, state.now);
  const CapturedLog log;
  const auto status = handler.VerifyAndInstallContainer(container);
  std::string id;
  handler.GetInstallingContainerId(id);
  Tell(status, id, log, json, out);
  return status == tuc::kInstalled ? kDone : kRefused;
}

// A unit holds its roots in PEM, as they stand; a root in DER is put into that form.
Result<std::string> RootsFrom(const std::string& path, const std::string& bytes) {
  if (bytes.find("-----BEGIN CERTIFICATE-----") != std::string::npos) return bytes;
  const auto certificates = LoadCertificates(path);
  if (!certificates.Ok()) return Error("no PEM certificate in " + path + ", nor one in DER");
  return certificates.Value().front().PEM_encode();
}

int CodeOf(const platform_host::ConnectFailure& failure) {
  return failure.status == EINVAL ? kRefused : kFileFailed;
}

int Complain(const std::string& error, int code, std::ostream& err) {
  err << "tsc verify: " << error << '\n';
  return code;
}

}  // namespace

int RunVerify(const VerifyOptions& options, std::ostream& out, std::ostream& err) {
  // What the client logs before and after the answer is not part of it.
  const CapturedLog aside;
  auto state = StateFrom(options);
  if (!state.Ok()) return Complain(state.Failure().Text(), kUsage, err);
  auto unit = std::move(state).Take();
  const auto switches = SwitchesOn(options.switches);
  if (!switches.Ok()) return Complain(switches.Failure().Text(), kUsage, err);
  if (unit.responder) {
    const auto failure = TrustFailure(*unit.responder);
    if (failure) return Complain("--ocsp-ca: " + failure->reason, CodeOf(*failure), err);
  }
  for (const auto& path : options.rootFiles) {
    const auto bytes = ReadWholeFile(path);
    if (!bytes.Ok()) return Complain(bytes.Failure().Text(), kFileFailed, err);
    const auto pem = RootsFrom(path, bytes.Value());
    if (!pem.Ok()) return Complain(pem.Failure().Text(), kRefused, err);
    unit.rootsPem += pem.Value();
  }
  const auto container = ReadWholeFile(options.file);
  if (!container.Ok()) return Complain(container.Failure().Text(), kFileFailed, err);
  return Answer(container.Value(), unit, switches.Value(), options.json, out);
}

}  // namespace tsc
