#include "tools/platformctl/Commands.h"

#include <gmock/gmock.h>

#include <future>
#include <sstream>
#include <string>

#include "platform/host/control/ControlListener.h"
#include "tests/support/ControlPeer.h"
#include "tests/support/TemporaryDirectory.h"
#include "tools/platformctl/ExitCode.h"

namespace platformctl {
namespace {

/// A server that gives one answer, for what no process of ours would say.
class CommandsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::future<void> AnswerOnce(const std::string& answer) {
    listener.reset();  // of the answer before: the path is free then
    auto opened = platform_host::ControlListener::Open(path);
    EXPECT_TRUE(opened.Ok());
    listener = std::move(opened).Take();
    return std::async(std::launch::async, [this, answer] {
      EXPECT_TRUE(tests::WaitFor(listener->Descriptor(), POLLIN));
      const tests::ControlPeer client(listener->Accept());
      EXPECT_NE(client.ReadLine(), "");
      EXPECT_TRUE(client.Send(answer));
    });
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/control.sock";
  std::unique_ptr<platform_host::ControlListener> listener;
  std::ostringstream out;
  std::ostringstream err;
};

TEST_F(CommandsTest, StatusOfAnotherKind_NotDone) {
  for (const char* answer : {R"({"ok":true})", R"({"ok":true,"status":[]})"}) {
    err.str("");
    const auto served = AnswerOnce(answer);
    EXPECT_EQ(RunStatus(path, {}, out, err), kNotDone);
    EXPECT_EQ(err.str(), "tsuc-platformctl: " + path + ": its answer holds no status\n");
  }
  EXPECT_EQ(out.str(), "");
}

TEST_F(CommandsTest, ConfirmationWithoutState_NotDone) {
  const auto served = AnswerOnce(R"({"ok":true})");
  StateOptions options;
  options.state = "kOn";
  EXPECT_EQ(RunState(path, options, out, err), kNotDone);
  EXPECT_EQ(err.str(), "tsuc-platformctl: " + path + ": confirmed another state: -\n");
}

TEST_F(CommandsTest, NumbersOfAnotherKind_ShownAsTheyAre) {
  const auto served = AnswerOnce(R"({"ok":true,"state":"kOn","sequence":"\u001b"})");
  StateOptions options;
  options.state = "kOn";
  EXPECT_EQ(RunState(path, options, out, err), kDone);
  EXPECT_EQ(out.str(), "kOn confirmed (\"\\u001b\")\n");
}

}  // namespace
}  // namespace platformctl
