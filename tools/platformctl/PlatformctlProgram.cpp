#include "tools/platformctl/PlatformctlProgram.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <ostream>

#include "platform/host/config/HostConfig.h"
#include "tools/platformctl/Commands.h"
#include "tools/platformctl/ExitCode.h"

namespace platformctl {
namespace {

constexpr const char* kExitCodes =
    "Exit codes: 0 done, and confirmed where a state was requested; 1 not done: refused, not in\n"
    "time, or no process serves; 2 wrong options, or a configuration that cannot be used.";

using Action = std::function<int(const std::string&, std::ostream&, std::ostream&)>;

/// All commands' options, and the command that was asked for.
struct Request {
  StatusOptions status;
  StateOptions state;
  ConnectionOptions connection;
  Action action;
};

void AddStatus(CLI::App& app, Request& request) {
  CLI::App& command = *app.add_subcommand("status", "show what the running process tells");
  command.add_flag("--json", request.status.json, "show it in JSON");
  command.callback([&request] {
    request.action = [&request](const std::string& path, std::ostream& out, std::ostream& err) {
      return RunStatus(path, request.status, out, err);
    };
  });
}

void AddState(CLI::App& app, Request& request) {
  CLI::App& command =
      *app.add_subcommand("state", "request a state and wait until it is confirmed");
  command.add_option("STATE", request.state.state, "kOn or kPrepSD")
      ->required()
      ->check(CLI::IsMember({"kOn", "kPrepSD"}));
  command
      .add_option("--timeout", request.state.timeoutSeconds,
                  "seconds to wait for the confirmation (default 30)")
      ->check(CLI::Range(std::int64_t{1}, kMostTimeoutSeconds));
  command.callback([&request] {
    request.action = [&request](const std::string& path, std::ostream& out, std::ostream& err) {
      return RunState(path, request.state, out, err);
    };
  });
}

void AddConnection(CLI::App& app, Request& request) {
  CLI::App& command = *app.add_subcommand(
      "connection", "hold the connection state at a value, or let it follow the broker again");
  command
      .add_option("STATE", request.connection.state,
                  "1 no connection, 2 connected, 3 degraded, 4 suspended; auto follows the broker")
      ->required()
      ->check(CLI::IsMember({"1", "2", "3", "4", "auto"}));
  command.callback([&request] {
    request.action = [&request](const std::string& path, std::ostream& out, std::ostream& err) {
      return RunConnection(path, request.connection, out, err);
    };
  });
}

/// The parser would only say that a command is missing.
bool IsUnknownCommand(const CLI::App& app, const std::string& argument) {
  if (argument.empty() || argument.front() == '-') return false;
  const auto ofThisName = [&argument](const CLI::App* command) {
    return command->get_name() == argument;
  };
  return app.get_subcommands(ofThisName).empty();
}

int Run(const Action& action, std::ostream& out, std::ostream& err) {
  const auto& config = platform_host::HostConfig::OfProcess();
  if (config.Ok()) return action(config.Value().controlSocket, out, err);
  err << "tsuc-platformctl: " << config.Failure().Text() << '\n';
  return kUsage;
}

int ParseAndRun(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
  CLI::App app(
      "Asks the running trust store update client, and what it stands on, by the control "
      "socket of its platform.",
      "tsuc-platformctl");
  app.require_subcommand(1);
  app.footer(kExitCodes);
  Request request;
  AddStatus(app, request);
  AddState(app, request);
  AddConnection(app, request);
  try {
    if (!arguments.empty() && IsUnknownCommand(app, arguments.front())) {
      err << "tsuc-platformctl: " << arguments.front()
          << ": no such command; there are status, state and connection\n";
      return kUsage;
    }
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    return Run(request.action, out, err);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? kDone : kUsage;
  } catch (const std::exception& error) {
    err << "tsuc-platformctl: " << error.what() << '\n';
    return kNotDone;
  }
}

}  // namespace

int RunPlatformctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
  const int code = ParseAndRun(std::move(arguments), out, err);
  // What is told after a failed write is lost as well, and a full disk shows only now.
  if (out.flush()) return code;
  err << "tsuc-platformctl: standard output: cannot be written\n";
  return kNotDone;
}

}  // namespace platformctl
