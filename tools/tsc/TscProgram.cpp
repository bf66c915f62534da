#include "tools/tsc/TscProgram.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <ostream>

#include "tools/tsc/CreateCommand.h"
#include "tools/tsc/ExitCode.h"
#include "tools/tsc/InspectCommand.h"
#include "tools/tsc/JobCommand.h"
#include "tools/tsc/ReportCommand.h"
#include "tools/tsc/SwitchesCommand.h"
#include "tools/tsc/VerifyCommand.h"

namespace tsc {

namespace {

constexpr const char* kExitCodes =
    "Exit codes: 0 done; 1 a unit would refuse it, or an input is not what it should be; 2 wrong\n"
    "options; 3 a file could not be read or written.";

using Action = std::function<int(std::ostream&, std::ostream&)>;

// All commands' options, and the command that was asked for. An option that may be given again
// takes one argument each time, so that it never swallows a FILE that follows; only --chain, whose
// command has no FILE, takes several.
struct Request {
  CreateOptions create;
  InspectOptions inspect;
  JobOptions job;
  ReportOptions report;
  SwitchesOptions switches;
  VerifyOptions verify;
  Action action;
};

void AddCreate(CLI::App& app, Request& request) {
  CLI::App& command = *app.add_subcommand("create", "write a signed container");
  CreateOptions& options = request.create;
  command.add_option("--key", options.keyFile, "the signer's private key, PKCS 8 in PEM or DER")
      ->required();
  command
      .add_option("--chain", options.chainFiles,
                  "the signer's chain, leaf first; PEM or DER, one or several files")
      ->required();
  command.add_option("--id", options.id, "the container's id")->required();
  command.add_option("--timestamp", options.timestamp,
                     "now (default), YYYY-MM-DDThh:mm:ss in UTC, or seconds since the epoch");
  command
      .add_option("--bundle", options.bundles,
                  "NAME=FILE: certificates (PEM or DER) for bundle NAME; again for more; NAME= for "
                  "an empty bundle")
      ->required()
      ->allow_extra_args(false);
  command.add_option("-o,--output", options.outputFile, "the file to write")->required();
  command.add_option("--alg", options.algorithm, "what the header says (default ES256)");
  command.add_flag("--no-check", options.noCheck,
                   "write what a unit would refuse, too, and warn only");
  command.add_flag("--json", options.json, "tell the result in JSON");
  command.callback([&request] {
    request.action = [&request](std::ostream& out, std::ostream& err) {
      return RunCreate(request.create, out, err);
    };
  });
}

void AddInspect(CLI::App& app, Request& request) {
  CLI::App& command =
      *app.add_subcommand("inspect", "show what a container says, without judging it");
  command.add_option("FILE", request.inspect.file, "the container")->required();
  command.add_flag("--json", request.inspect.json, "show it in JSON");
  command.callback([&request] {
    request.action = [&request](std::ostream& out, std::ostream& err) {
      return RunInspect(request.inspect, out, err);
    };
  });
}

void AddVerify(CLI::App& app, Request& request) {
  CLI::App& command =
      *app.add_subcommand("verify", "tell what a unit would say to a container; installs nothing");
  VerifyOptions& options = request.verify;
  command.add_option("FILE", options.file, "the container")->required();
  command.add_option("--root", options.rootFiles, "PEM file of root certificates; again for more")
      ->required()
      ->allow_extra_args(false);
  command.add_option("--installed-id", options.installedId, "id of the installed container");
  command.add_option("--installed-timestamp", options.installedTimestamp,
                     "timestamp of the installed container; 0 (default): none is installed");
  command.add_option("--at", options.at, "the unit's clock (default now)");
  auto* const ocsp = command.add_option(
      "--ocsp", options.ocsp,
      "what is known of revocation: none (default; the unit refuses then), good, revoked");
  auto* const url =
      command
          .add_option("--ocsp-url", options.ocspUrl,
                      "URL of the OCSP responder to ask, once about each certificate of the signer")
          ->excludes(ocsp);
  command
      .add_option("--ocsp-ca", options.ocspCa,
                  "PEM file of certificates that an https responder is verified against")
      ->needs(url);
  command
      .add_option("--switch", options.switches,
                  "a development switch that is on at the unit; again for more")
      ->allow_extra_args(false);
  command.add_flag("--json", options.json, "tell the answer in JSON");
  command.callback([&request] {
    request.action = [&request](std::ostream& out, std::ostream& err) {
      return RunVerify(request.verify, out, err);
    };
  });
}

void AddSwitches(CLI::App& app, Request& request) {
  CLI::App& command =
      *app.add_subcommand("switches", "show a unit's development switches, or write their file");
  SwitchesOptions& options = request.switches;
  command.add_option("--file", options.file, "the switches file (default: the unit's own)");
  auto* const init = command.add_flag("--init", options.init, "write the default file");
  command.add_flag("--force", options.force, "with --init: replace a file that exists")
      ->needs(init);
  command.add_flag("--json", options.json, "show them in JSON");
  command.callback([&request] {
    request.action = [&request](std::ostream& out, std::ostream& err) {
      return RunSwitches(request.switches, out, err);
    };
  });
}

void AddJob(CLI::App& app, Request& request) {
  CLI::App& command =
      *app.add_subcommand("job", "write the message that tells a unit which container to install");
  command.add_option("--id", request.job.id, "the container's id")->required();
  command.add_option("-o,--output", request.job.outputFile,
                     "the file to write; - (default): standard output");
  command.add_flag("--json", request.job.json, "tell of the file in JSON");
  command.callback([&request] {
    request.action = [&request](std::ostream& out, std::ostream& err) {
      return RunJob(request.job, out, err);
    };
  });
}

void AddReport(CLI::App& app, Request& request) {
  CLI::App& command = *app.add_subcommand("report", "show a unit's status report");
  command.add_option("FILE", request.report.file,
                     "the body of the report's request; - (default): standard input");
  command.add_flag("--json", request.report.json, "show it in JSON");
  command.callback([&request] {
    request.action = [&request](std::ostream& out, std::ostream& err) {
      return RunReport(request.report, out, err);
    };
  });
}

// The parser would only say that a command is missing.
bool IsUnknownCommand(const CLI::App& app, const std::string& argument) {
  if (argument.empty() || argument.front() == '-') return false;
  const auto ofThisName = [&argument](const CLI::App* command) {
    return command->get_name() == argument;
  };
  return app.get_subcommands(ofThisName).empty();
}

int ParseAndRun(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
  CLI::App app(
      "Trust store containers and the messages around them: make them, look into them, ask what a "
      "unit would say.",
      "tsc");
  app.require_subcommand(1);
  app.footer(kExitCodes);
  Request request;
  AddCreate(app, request);
  AddInspect(app, request);
  AddVerify(app, request);
  AddJob(app, request);
  AddReport(app, request);
  AddSwitches(app, request);
  try {
    if (!arguments.empty() && IsUnknownCommand(app, arguments.front())) {
      err << "tsc: " << arguments.front()
          << ": no such command; there are create, inspect, verify, job, report and "
             "switches\n";
      return kUsage;
    }
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    return request.action(out, err);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? kDone : kUsage;
  } catch (const std::exception& error) {
    err << "tsc: " << error.what() << '\n';
    return kRefused;
  }
}

}  // namespace

int RunTsc(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
  const int code = ParseAndRun(std::move(arguments), out, err);
  // What is told after a failed write is lost as well, and a full disk shows only now.
  if (out.flush()) return code;
  err << "tsc: standard output: cannot be written\n";
  return kFileFailed;
}

}  // namespace tsc
