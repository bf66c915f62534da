#include "tools/tsc/ReportCommand.h"

#include <google/protobuf/stubs/logging.h>

#include <nlohmann/json.hpp>
#include <ostream>

#include "RUNA_CO_TruststoreUpdateReportTSCStatus_v1.pb.h"
#include "platform/host/csc_logging/LineFormat.h"
#include "tools/tsc/ExitCode.h"
#include "tools/tsc/Files.h"
#include "tools/tsc/JobCommand.h"

namespace tsc {

namespace {

using Report = domain::backend::proto::RUNACOTruststoreUpdateReportTSCStatusV1;

// Units also send numbers that the schema has no name for.
std::string NameOf(const Report& report) {
  const std::string& name = Report::StatusCode_Name(report.status_code());
  return name.empty() ? "unknown" : name;
}

void Show(const Report& report, bool json, std::ostream& out) {
  const int status = report.status_code();
  if (json) {
    const nlohmann::ordered_json told = {
        {"status", status}, {"name", NameOf(report)}, {"container_id", report.container_id()}};
    out << told.dump(2) << '\n';
    return;
  }
  out << "status    " << status << ' ' << NameOf(report) << "\ncontainer "
      << platform_host::EscapeLine(report.container_id(), platform_host::kLineLimit) << '\n';
}

}  // namespace

int RunReport(const ReportOptions& options, std::ostream& out, std::ostream& err) {
  const bool standardInput = options.file == kStandardStream;
  const auto bytes = ReadWholeFile(standardInput ? "/dev/stdin" : options.file, kMaxReportBytes);
  if (!bytes.Ok()) {
    err << "tsc report: " << bytes.Failure().Text() << '\n';
    return kFileFailed;
  }
  // What it would log is told here, once.
  const google::protobuf::LogSilencer silencer;
  Report report;
  if (!report.ParseFromString(bytes.Value())) {
    err << "tsc report: " << (standardInput ? "/dev/stdin" : options.file)
        << ": no status report\n";
    return kRefused;
  }
  Show(report, options.json, out);
  return kDone;
}

}  // namespace tsc
