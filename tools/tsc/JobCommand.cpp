#include "tools/tsc/JobCommand.h"

#include <google/protobuf/stubs/logging.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "RUNA_CT_TruststoreUpdateTSCJob_v1.pb.h"
#include "tools/tsc/ContainerId.h"
#include "tools/tsc/ExitCode.h"
#include "tools/tsc/Files.h"

namespace tsc {

namespace {

using Job = domain::backend::proto::RUNACTTruststoreUpdateTSCJobV1;

std::string Message(const std::string& id) {
  Job job;
  job.set_container_id(id);
  return job.SerializeAsString();
}

// The library writes text that is no UTF-8, but nobody can read it.
bool IsReadable(const std::string& message) {
  return Job().ParseFromString(message);
}

void Tell(const JobOptions& options, std::size_t size, std::ostream& out) {
  if (options.json) {
    const nlohmann::ordered_json told = {
        {"file", options.outputFile}, {"container_id", options.id}, {"bytes", size}};
    out << told.dump(2) << '\n';
    return;
  }
  out << options.outputFile << ": job for container " << options.id << ", " << size << " bytes\n";
}

int Write(const JobOptions& options, const std::string& message, std::ostream& out,
          std::ostream& err) {
  if (options.outputFile == kStandardStream) {
    out << message;
    return kDone;
  }
  const std::string error = ReplaceWholeFile(options.outputFile, message);
  if (!error.empty()) {
    err << "tsc job: " << error << '\n';
    return kFileFailed;
  }
  Tell(options, message.size(), out);
  return kDone;
}

}  // namespace

int RunJob(const JobOptions& options, std::ostream& out, std::ostream& err) {
  if (options.json && options.outputFile == kStandardStream) {
    err << "tsc job: --json: needs -o FILE\n";
    return kUsage;
  }
  // What it would log is told here, once.
  const google::protobuf::LogSilencer silencer;
  auto objections = IdObjections(options.id);
  const std::string message = Message(options.id);
  if (!IsReadable(message)) objections.emplace_back("no UTF-8");
  for (const auto& objection : objections) err << "tsc job: --id: " << objection << '\n';
  return objections.empty() ? Write(options, message, out, err) : kRefused;
}

}  // namespace tsc
