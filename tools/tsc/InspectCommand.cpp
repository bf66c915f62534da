#include "tools/tsc/InspectCommand.h"

#include <ostream>

#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/csc_logging/LineFormat.h"
#include "tools/tsc/ContainerContents.h"
#include "tools/tsc/Counted.h"
#include "tools/tsc/ExitCode.h"
#include "tools/tsc/Files.h"

namespace tsc {

namespace {

std::string Printable(const std::string& text) {
  return platform_host::EscapeLine(text, platform_host::kLineLimit);
}

void Show(const std::vector<CertificateFacts>& certificates, std::ostream& out) {
  for (std::size_t index = 0; index < certificates.size(); ++index) {
    const CertificateFacts& facts = certificates[index];
    out << "  [" << index << "] ";
    if (facts.problem.empty()) {
      out << Printable(facts.subject) << "\n      issuer  " << Printable(facts.issuer)
          << "\n      valid   " << facts.notBefore << " to " << facts.notAfter << '\n';
    } else {
      out << "not read: " << Printable(facts.problem) << '\n';
    }
    out << "      SHA-256 " << facts.sha256 << '\n';
  }
}

void Show(const ContainerContents& contents, std::ostream& out) {
  out << "container    " << Printable(contents.id) << "\ntimestamp    "
      << Printable(contents.timestamp) << "\nalgorithm    " << Printable(contents.algorithm)
      << "\nsignature    " << contents.signatureBytes << " bytes, not verified\nsigner chain "
      << Counted(contents.chain.size(), "certificate") << '\n';
  Show(contents.chain, out);
  for (const auto& bundle : contents.bundles) {
    out << "bundle       " << Printable(bundle.name) << ", "
        << Counted(bundle.certificates.size(), "certificate") << '\n';
    Show(bundle.certificates, out);
  }
}

}  // namespace

int RunInspect(const InspectOptions& options, std::ostream& out, std::ostream& err) {
  // The decoders log what they dislike; here it is told once, by the error.
  const platform_host::CapturedLog log;
  const auto text = ReadWholeFile(options.file);
  if (!text.Ok()) {
    err << "tsc inspect: " << text.Failure().Text() << '\n';
    return kFileFailed;
  }
  const auto contents = ReadContainer(text.Value());
  if (!contents.Ok()) {
    err << "tsc inspect: " << options.file << ": " << Printable(contents.Failure().Text()) << '\n';
    return kRefused;
  }
  if (options.json) {
    out << ToJson(contents.Value())
               .dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
        << '\n';
  } else {
    Show(contents.Value(), out);
  }
  return kDone;
}

}  // namespace tsc
