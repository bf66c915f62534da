#include "TruststoreUpdateClient/CommandLine.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "TruststoreUpdateClient/Constants.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace truststore_update_client {
namespace {

using tests::ReadText;
using tests::WriteText;

const std::string kHelp =
    "Usage: truststore-update-client [-f filename|-m 10000001|-r|-h] -reset\n"
    "truststore-update-client -f       Give a container example eg. '-f valid_tsc_2021.txt'\n"
    "truststore-update-client -m       Modify config.cfg by given binary string (1=true, 0=false) "
    "eg. '-m 10000001'\n"
    "truststore-update-client -r       Run Client in Retry Test Mode\n"
    "truststore-update-client -h       Print help\n"
    "truststore-update-client -reset   Activate Factory Reset\n";

const std::string kSwitches =
    "ConnectionRetryTestMode = false\n"
    "OcspDisable = false\n"
    "no-check-replayprotection = false\n"
    "no-check-timestampfuture = false\n"
    "no-check-signcertpath = false\n"
    "no-check-signcertcn = false\n"
    "no-check-tscsignature = false\n"
    "no-check-ocsp = false\n"
    "no-check-all = false\n";

// kSwitches with these keys true.
std::string With(const std::vector<std::string>& keysOn) {
  std::string text = kSwitches;
  for (const std::string& key : keysOn) {
    text.replace(text.find(key + " = false"), key.size() + 8, key + " = true");
  }
  return text;
}

std::string Changed(const std::string& key, const std::string& value) {
  return "\033[1;32mOption '" + key + "' value changed to '" + value + "'\033[0m\n";
}

std::string NonAcceptible(const std::string& character, int position) {
  return "\033[1;31mThe non-acceptible character " + character + " at position " +
         std::to_string(position) + ". Config.cfg not modified\033[0m\n";
}

class CommandLineArguments : public ::testing::Test {
 protected:
  CommandLineArguments() {
    ::optind = 0;  // makes getopt forget the arguments of the test before
    ::opterr = 0;
    WriteText(file, kSwitches);
  }

  CommandLine Parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "program");
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    return ParseCommandLine(static_cast<int>(arguments.size()), argv.data(), tools, file);
  }

  tests::TemporaryDirectory directory;
  const std::string file = directory.Path() + "/config.cfg";
  tests::CapturedOutput output;
  const development_tools::DevelopmentTools tools{directory.Path()};

  void SetUp() override { output.Clear(); }
};

TEST_F(CommandLineArguments, NoArguments_ClientRunsAndNothingWritten) {
  const CommandLine commandLine = Parse({});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_FALSE(commandLine.factoryReset);
  EXPECT_EQ(commandLine.developmentContainer, "");
  EXPECT_EQ(ReadText(file), kSwitches);
  EXPECT_EQ(output.Text(), "");
}

TEST_F(CommandLineArguments, OperandOnly_Ignored) {
  const CommandLine commandLine = Parse({"container.txt"});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_EQ(commandLine.developmentContainer, "");
  EXPECT_EQ(output.Text(), "");
}

TEST_F(CommandLineArguments, ContainerFile_ItsPathAndOcspDisabled) {
  const CommandLine commandLine = Parse({"-f", "/tmp/container.txt"});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_FALSE(commandLine.factoryReset);
  EXPECT_EQ(commandLine.developmentContainer, "/tmp/container.txt");
  EXPECT_EQ(ReadText(file), With({"OcspDisable"}));
  EXPECT_EQ(output.Text(), Changed("OcspDisable", "true"));
}

TEST_F(CommandLineArguments, ContainerFileJoinedToOption_ItsPath) {
  EXPECT_EQ(Parse({"-fvalid_2"}).developmentContainer, "valid_2");
}

TEST_F(CommandLineArguments, ContainerValid_ExampleContainer) {
  EXPECT_EQ(Parse({"-f", "valid"}).developmentContainer,
            "/var/run/csc/config/truststore-update-client/valid_tsc_2018.txt");
}

TEST_F(CommandLineArguments, ContainerTwice_Last) {
  EXPECT_EQ(Parse({"-f", "a", "-f", "b"}).developmentContainer, "b");
}

TEST_F(CommandLineArguments, ContainerWithoutSwitchesFile_RunsAndMakesNone) {
  std::filesystem::remove(file);
  const CommandLine commandLine = Parse({"-f", "a"});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_EQ(output.Text(), "\033[1;31mOption 'OcspDisable' not found!\033[0m\n");
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(CommandLineArguments, RetryTestMode_SwitchOnAndClientRuns) {
  const CommandLine commandLine = Parse({"-r"});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_EQ(commandLine.developmentContainer, "");
  EXPECT_EQ(ReadText(file), With({"ConnectionRetryTestMode"}));
  EXPECT_EQ(output.Text(), Changed("ConnectionRetryTestMode", "true"));
}

TEST_F(CommandLineArguments, ContainerAndRetryAndReset_AllThree) {
  const CommandLine commandLine = Parse({"-f", "valid", "-r", "-reset"});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_TRUE(commandLine.factoryReset);
  EXPECT_EQ(commandLine.developmentContainer, testing::TRUSTSTORE_CONTAINER);
  EXPECT_EQ(ReadText(file), With({"OcspDisable", "ConnectionRetryTestMode"}));
}

TEST_F(CommandLineArguments, ResetAlone_ClientRunsWithReset) {
  const CommandLine commandLine = Parse({"-reset"});
  EXPECT_TRUE(commandLine.runClient);
  EXPECT_TRUE(commandLine.factoryReset);
  EXPECT_EQ(ReadText(file), kSwitches);
  EXPECT_EQ(output.Text(), "");
}

// Elsewhere it is a row of options: -r, and then one that nobody knows.
TEST_F(CommandLineArguments, ResetBeforeOtherOption_HelpOnly) {
  const CommandLine commandLine = Parse({"-reset", "-f", "a"});
  EXPECT_FALSE(commandLine.runClient);
  EXPECT_FALSE(commandLine.factoryReset);
  EXPECT_EQ(commandLine.developmentContainer, "");
  EXPECT_EQ(output.Text(), Changed("ConnectionRetryTestMode", "true") + kHelp);
}

TEST_F(CommandLineArguments, ResetTwice_HelpOnly) {
  EXPECT_FALSE(Parse({"-reset", "-reset"}).runClient);
  EXPECT_EQ(output.Text(), Changed("ConnectionRetryTestMode", "true") + kHelp);
}

TEST_F(CommandLineArguments, ResetInPlaceOfArgument_HelpOnly) {
  EXPECT_FALSE(Parse({"-f", "-reset"}).runClient);
  EXPECT_EQ(ReadText(file), kSwitches);
  EXPECT_EQ(output.Text(), kHelp);
}

TEST_F(CommandLineArguments, LookAlikesOfReset_NoReset) {
  for (const std::string argument : {"reset", "-rese", "-reset ", "-Reset", "--reset"}) {
    ::optind = 0;
    EXPECT_FALSE(Parse({argument}).factoryReset) << argument;
  }
}

TEST_F(CommandLineArguments, HelpUnknownOptionOrMissingArgument_HelpOnly) {
  const std::vector<std::vector<std::string>> lines = {
      {"-h"},       {"-x"},           {"-f"}, {"-m"}, {"--help"}, {"-h", "-f", "a"},
      {"-x", "-r"}, {"operand", "-h"}};
  for (const auto& line : lines) {
    ::optind = 0;
    output.Clear();
    EXPECT_FALSE(Parse(line).runClient) << line.front();
    EXPECT_EQ(output.Text(), kHelp) << line.front();
    EXPECT_EQ(ReadText(file), kSwitches) << line.front();
  }
}

// Options take effect in their order, also those before the one that ends the program.
TEST_F(CommandLineArguments, RetryBeforeHelp_SwitchOnAndHelp) {
  EXPECT_FALSE(Parse({"-r", "-h"}).runClient);
  EXPECT_EQ(ReadText(file), With({"ConnectionRetryTestMode"}));
  EXPECT_EQ(output.Text(), Changed("ConnectionRetryTestMode", "true") + kHelp);
}

TEST_F(CommandLineArguments, PrintHelp_Usage) {
  PrintHelp();
  EXPECT_EQ(output.Text(), kHelp);
}

TEST_F(CommandLineArguments, BitsOfTheHelp_SevenSwitchesAndOneComplaint) {
  EXPECT_FALSE(Parse({"-m", "10000001"}).runClient);
  EXPECT_EQ(ReadText(file), With({"no-check-replayprotection"}));
  EXPECT_EQ(
      output.Text(),
      Changed("no-check-replayprotection", "true") + Changed("no-check-timestampfuture", "false") +
          Changed("no-check-signcertpath", "false") + Changed("no-check-signcertcn", "false") +
          Changed("no-check-tscsignature", "false") + Changed("no-check-ocsp", "false") +
          Changed("no-check-all", "false") + "No 'no-check-xxx' development flag on index: 7\n");
}

TEST_F(CommandLineArguments, OneBit_FirstSwitchOnly) {
  EXPECT_FALSE(Parse({"-m", "1"}).runClient);
  EXPECT_EQ(ReadText(file), With({"no-check-replayprotection"}));
  EXPECT_EQ(output.Text(), Changed("no-check-replayprotection", "true"));
}

TEST_F(CommandLineArguments, EachBit_ItsSwitch) {
  const std::vector<std::string> keys = {"no-check-replayprotection",
                                         "no-check-timestampfuture",
                                         "no-check-signcertpath",
                                         "no-check-signcertcn",
                                         "no-check-tscsignature",
                                         "no-check-ocsp",
                                         "no-check-all"};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ::optind = 0;
    EXPECT_FALSE(Parse({"-m", std::string(i, '0') + "1000000"}).runClient);
    EXPECT_EQ(ReadText(file), With({keys[i]}));
    WriteText(file, kSwitches);
  }
}

TEST_F(CommandLineArguments, BitZero_SwitchTurnedOff) {
  WriteText(file, With({"no-check-replayprotection", "no-check-all"}));
  EXPECT_FALSE(Parse({"-m", "0"}).runClient);
  EXPECT_EQ(ReadText(file), With({"no-check-all"}));
}

TEST_F(CommandLineArguments, NewlineAmongBits_CountsAsZero) {
  WriteText(file, With({"no-check-timestampfuture"}));
  EXPECT_FALSE(Parse({"-m", "0\n1"}).runClient);
  EXPECT_EQ(ReadText(file), With({"no-check-signcertpath"}));
}

TEST_F(CommandLineArguments, NoBits_NothingWritten) {
  EXPECT_FALSE(Parse({"-m", ""}).runClient);
  EXPECT_EQ(ReadText(file), kSwitches);
  EXPECT_EQ(output.Text(), "");
}

TEST_F(CommandLineArguments, TwoBitsTooMany_ComplaintForEach) {
  EXPECT_FALSE(Parse({"-m", "000000011"}).runClient);
  EXPECT_EQ(ReadText(file), kSwitches);
  EXPECT_THAT(output.Text(),
              ::testing::EndsWith("No 'no-check-xxx' development flag on index: 7\n"
                                  "No 'no-check-xxx' development flag on index: 8\n"));
}

TEST_F(CommandLineArguments, OtherCharacterAmongBits_FirstIsReportedAndNothingWritten) {
  struct Case {
    std::string bits;
    std::string character;
    int position;
  };
  const std::vector<Case> cases = {{"10x", "x", 2},    {"x", "x", 0},         {"1 1", " ", 1},
                                   {"12y", "2", 1},    {"-r", "-", 0},        {"1\t", "\t", 1},
                                   {"1\r\n", "\r", 1}, {"00000000x", "x", 8}, {"true", "t", 0}};
  for (const Case& bad : cases) {
    ::optind = 0;
    output.Clear();
    EXPECT_FALSE(Parse({"-m", bad.bits}).runClient) << bad.bits;
    EXPECT_EQ(output.Text(), NonAcceptible(bad.character, bad.position)) << bad.bits;
    EXPECT_EQ(ReadText(file), kSwitches) << bad.bits;
  }
}

TEST_F(CommandLineArguments, OptionsAfterBits_NotParsed) {
  const CommandLine commandLine = Parse({"-m", "1", "-f", "a", "-x"});
  EXPECT_FALSE(commandLine.runClient);
  EXPECT_EQ(commandLine.developmentContainer, "");
  EXPECT_EQ(ReadText(file), With({"no-check-replayprotection"}));
  EXPECT_EQ(output.Text(), Changed("no-check-replayprotection", "true"));
}

}  // namespace
}  // namespace truststore_update_client
