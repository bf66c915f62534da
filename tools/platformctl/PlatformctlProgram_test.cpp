#include "tools/platformctl/PlatformctlProgram.h"

#include <gmock/gmock.h>

#include <future>
#include <sstream>
#include <string>
#include <vector>

#include "platform/host/config/HostConfig.h"
#include "platform/host/control/ControlServer.h"
#include "tests/support/HostConfiguration.h"
#include "tools/platformctl/Commands.h"
#include "tools/platformctl/ExitCode.h"

namespace platformctl {
namespace {

using nlohmann::json;
using platform_host::ControlBoard;
using platform_host::ControlReply;
using platform_host::ControlServer;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// A configuration that names a socket, and a process that may serve there.
class PlatformctlProgram : public ::testing::Test {
 protected:
  int Run(const std::vector<std::string>& arguments) {
    const tests::HostConfiguration configuration("[control]\nsocket = \"" + path + "\"\n");
    return RunPlatformctl(arguments, out, err);
  }

  /// Serves; a command is answered with these members.
  void Serve(const std::string& command, const json& answer) {
    offers.push_back(
        board.OfferCommand(command, [this, answer](const json& request, const ControlReply& reply) {
          requests.push_back(request.dump());
          reply.Answer(answer);
        }));
    Serve();
  }

  void Serve() {
    auto started = ControlServer::Start(path, board);
    ASSERT_TRUE(started.Ok());
    server = std::move(started).Take();
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/control.sock";
  ControlBoard board;
  std::vector<std::unique_ptr<ControlBoard::Offer>> offers;
  std::vector<std::string> requests;  ///< written on the control thread, before the answer
  std::unique_ptr<ControlServer> server;
  std::ostringstream out;
  std::ostringstream err;
};

TEST_F(PlatformctlProgram, Status_ATable) {
  offers.push_back(board.OfferStatus("application", [] { return json{{"state", "running"}}; }));
  Serve();
  EXPECT_EQ(Run({"status"}), kDone) << err.str();
  EXPECT_THAT(out.str(), StartsWith("application  running\ncomponent    -\n"));
  EXPECT_EQ(err.str(), "");
}

TEST_F(PlatformctlProgram, StatusInJson_AsTheProcessGivesIt) {
  offers.push_back(board.OfferStatus("session", [] { return json{{"status", 2}}; }));
  Serve();
  EXPECT_EQ(Run({"status", "--json"}), kDone) << err.str();
  EXPECT_EQ(out.str(), "{\n  \"session\": {\n    \"status\": 2\n  }\n}\n");
}

TEST_F(PlatformctlProgram, StateConfirmed_Done) {
  Serve("state", {{"state", "kPrepSD"}, {"sequence", 3}});
  EXPECT_EQ(Run({"state", "kPrepSD"}), kDone) << err.str();
  EXPECT_EQ(out.str(), "kPrepSD confirmed (3)\n");
  EXPECT_THAT(requests, ::testing::ElementsAre(R"({"command":"state","state":"kPrepSD"})"));
}

TEST_F(PlatformctlProgram, AnotherStateConfirmed_NotDone) {
  Serve("state", {{"state", "kOn\n"}, {"sequence", 3}});
  EXPECT_EQ(Run({"state", "kOn"}), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: " + path + ": confirmed another state: \"kOn\\n\"\n");
  EXPECT_EQ(out.str(), "");
}

TEST_F(PlatformctlProgram, StateNotConfirmedInTime_NotDone) {
  std::vector<ControlReply> kept;
  offers.push_back(board.OfferCommand(
      "state", [&kept](const json&, const ControlReply& reply) { kept.push_back(reply); }));
  Serve();
  EXPECT_EQ(Run({"state", "kOn", "--timeout", "1"}), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: kOn was not confirmed within 1 s\n");
  server.reset();
}

TEST_F(PlatformctlProgram, StateRefused_NotDone) {
  offers.push_back(board.OfferCommand("state", [](const json&, const ControlReply& reply) {
    reply.Refuse("superseded by\trequest 4");
  }));
  Serve();
  EXPECT_EQ(Run({"state", "kOn"}), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: superseded by\\x09request 4\n");
}

TEST_F(PlatformctlProgram, ProcessEndsMeanwhile_NotDone) {
  std::promise<void> asked;
  offers.push_back(
      board.OfferCommand("state", [&](const json&, const ControlReply&) { asked.set_value(); }));
  Serve();
  auto ended = std::async(std::launch::async, [&] {
    asked.get_future().wait();
    server.reset();
  });
  EXPECT_EQ(Run({"state", "kOn"}), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: the process is ending\n");
}

TEST_F(PlatformctlProgram, ConnectionHeld_Done) {
  Serve("connection", {{"state", 4}, {"held", true}});
  EXPECT_EQ(Run({"connection", "4"}), kDone) << err.str();
  EXPECT_EQ(out.str(), "connection state 4, held\n");
  EXPECT_THAT(requests, ::testing::ElementsAre(R"({"command":"connection","state":4})"));
}

TEST_F(PlatformctlProgram, ConnectionOnItsOwn_Done) {
  Serve("connection", {{"state", 2}, {"held", false}});
  EXPECT_EQ(Run({"connection", "auto"}), kDone) << err.str();
  EXPECT_EQ(out.str(), "connection state 2, following the broker\n");
  EXPECT_THAT(requests, ::testing::ElementsAre(R"({"command":"connection","state":"auto"})"));
}

TEST_F(PlatformctlProgram, AnswerWithoutItsMembers_Dashes) {
  Serve("connection", json::object());
  EXPECT_EQ(Run({"connection", "1"}), kDone);
  EXPECT_EQ(out.str(), "connection state -, following the broker\n");
}

TEST_F(PlatformctlProgram, NobodyOffersTheCommand_NotDone) {
  Serve();
  EXPECT_EQ(Run({"connection", "1"}), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: nobody serves the command \"connection\" here\n");
}

TEST_F(PlatformctlProgram, NoProcess_NotDone) {
  const std::string told =
      "tsuc-platformctl: no process serves " + path + ": No such file or directory\n";
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"status"}, {"state", "kOn"}, {"connection", "1"}}) {
    err.str("");
    EXPECT_EQ(Run(arguments), kNotDone);
    EXPECT_EQ(err.str(), told);
  }
}

TEST_F(PlatformctlProgram, UnusableConfiguration_Two) {
  const tests::HostConfiguration configuration("[control]\nsocket = \"relative\"\n");
  EXPECT_EQ(RunPlatformctl({"status"}, out, err), kUsage);
  EXPECT_EQ(err.str(), "tsuc-platformctl: " + configuration.File() +
                           ":2: control.socket: must be an absolute path\n");
}

TEST_F(PlatformctlProgram, Help_OnStandardOutputWithExitCodes) {
  EXPECT_EQ(Run({"--help"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Exit codes: 0 done,"));
  EXPECT_EQ(err.str(), "");
}

TEST_F(PlatformctlProgram, TimeoutAtItsBounds_Taken) {
  Serve("state", {{"state", "kOn"}, {"sequence", 1}});
  for (const std::int64_t seconds : {std::int64_t{1}, kMostTimeoutSeconds}) {
    EXPECT_EQ(Run({"state", "kOn", "--timeout", std::to_string(seconds)}), kDone) << err.str();
  }
}

TEST_F(PlatformctlProgram, WrongUsage_Two) {
  const std::vector<std::string> cases[] = {
      {},
      {"burn"},
      {"status", "now"},
      {"status", "--xml"},
      {"state"},
      {"state", "kOff"},
      {"state", "kon"},
      {"state", "kOn", "kPrepSD"},
      {"state", "kOn", "--timeout", "0"},
      {"state", "kOn", "--timeout", "-1"},
      {"state", "kOn", "--timeout", "1.5"},
      {"state", "kOn", "--timeout", "86401"},
      {"state", "kOn", "--timeout", "99999999999999999999"},
      {"state", "kOn", "--timeout"},
      {"connection"},
      {"connection", "0"},
      {"connection", "5"},
      {"connection", "02"},
      {"connection", "Auto"},
  };
  for (const auto& arguments : cases) {
    err.str("");
    EXPECT_EQ(Run(arguments), kUsage) << ::testing::PrintToString(arguments);
    EXPECT_NE(err.str(), "");
  }
}

TEST_F(PlatformctlProgram, UnknownCommand_Named) {
  EXPECT_EQ(Run({"burn", "--help"}), kUsage);
  EXPECT_EQ(err.str(),
            "tsuc-platformctl: burn: no such command; there are status, state and connection\n");
}

/// A stream that takes nothing, as a full disk.
class FullDisk : public std::streambuf {};

TEST_F(PlatformctlProgram, AnswerThatCannotBeWritten_NotDone) {
  FullDisk disk;
  std::ostream full(&disk);
  EXPECT_EQ(RunPlatformctl({"--help"}, full, err), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: standard output: cannot be written\n");
}

}  // namespace
}  // namespace platformctl
