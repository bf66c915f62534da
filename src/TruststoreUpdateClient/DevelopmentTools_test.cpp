#include "TruststoreUpdateClient/DevelopmentTools.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "TruststoreUpdateClient/Constants.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace development_tools {
namespace {

using ::testing::ElementsAre;
using tests::CapturedOutput;
using tests::ReadText;
using tests::WriteText;

const std::string kDefaultFile =
    "; Please Do not put an empty line, Do not put space between values. Option -m used only for "
    "'no-check-xxx' flags.\n"
    ";\n"
    "TestModeEnabled             = true      ; Testability feature: Enables the test mode (Test "
    "logging, Test files, etch)\n"
    "ConnectionRetryTestMode     = false     ; Enable Test Mode for Connection Retry\n"
    "OcspDisable                 = false     ; Disable OCSP for testing with customized "
    "certificates\n"
    "no-check-replayprotection   = false     ; Do not check if the time stamp of the received "
    "container is newer than the current one\n"
    "no-check-timestampfuture    = false     ; Do not check if the time stamp of the received "
    "container does NOT lie more than one day in the future\n"
    "no-check-signcertpath       = false     ; Do not check the certification path of the signing "
    "public key given in the \"x5c\" header\n"
    "no-check-signcertcn         = false     ; Do not check if the public key used for signing has "
    "a pre-defined Common Name\n"
    "no-check-tscsignature       = false     ; Do not check the JSON Web Signature\n"
    "no-check-ocsp               = false     ; Do not care about the OCSP check result\n"
    "no-check-all                = false     ; disable all before-mentioned checks\n"
    ";            ";

const std::vector<std::string> kKeys = {"TestModeEnabled",
                                        "ConnectionRetryTestMode",
                                        "OcspDisable",
                                        "no-check-replayprotection",
                                        "no-check-timestampfuture",
                                        "no-check-signcertpath",
                                        "no-check-signcertcn",
                                        "no-check-tscsignature",
                                        "no-check-ocsp",
                                        "no-check-all"};

std::string Green(const std::string& message) {
  return "\033[1;32m" + message + "\033[0m\n";
}

std::string Red(const std::string& message) {
  return "\033[1;31m" + message + "\033[0m\n";
}

// `text` followed by comment lines until it has `size` bytes.
std::string PaddedTo(std::size_t size, std::string text) {
  text += ';';
  text.resize(size, '.');
  return text;
}

// Makes a switches file and reads it; what is printed is in `output`.
class DevelopmentToolsFile : public ::testing::Test {
 protected:
  DevelopmentTools Read(const std::string& text) {
    WriteText(file, text);
    return DevelopmentTools(file);
  }

  // Reads no file; the report about that is cleared away.
  DevelopmentTools WithoutFile() {
    DevelopmentTools tools(directory.Path() + "/absent");
    output.Clear();
    return tools;
  }

  static std::vector<std::string> SwitchesOn(const DevelopmentTools& tools) {
    std::vector<std::string> on;
    for (const std::string& key : kKeys) {
      if (tools.GetDevSwitchBool(key)) on.push_back(key);
    }
    return on;
  }

  tests::TemporaryDirectory directory;
  const std::string file = directory.Path() + "/config.cfg";
  CapturedOutput output;
};

TEST_F(DevelopmentToolsFile, NoFile_EverySwitchOffAndReported) {
  const DevelopmentTools tools(file);
  EXPECT_EQ(output.Text(), ">>> No configuration file found: " + file + "\n");
  EXPECT_THAT(SwitchesOn(tools), ElementsAre());
}

TEST_F(DevelopmentToolsFile, DirectoryInPlaceOfFile_ReportedAsNoFile) {
  const DevelopmentTools tools(directory.Path());
  EXPECT_EQ(output.Text(), ">>> No configuration file found: " + directory.Path() + "\n");
}

TEST_F(DevelopmentToolsFile, DefaultConstructor_FileOfTheUnit) {
  EXPECT_EQ(DevelopmentTools().GetConfigFilename(),
            truststore_update_client::testing::TSUC_CONFIG_FILE_NAME);
}

TEST_F(DevelopmentToolsFile, GivenFile_ItsName) {
  EXPECT_EQ(WithoutFile().GetConfigFilename(), directory.Path() + "/absent");
}

TEST_F(DevelopmentToolsFile, EmptyFile_NothingReported) {
  EXPECT_THAT(SwitchesOn(Read("")), ElementsAre());
  EXPECT_EQ(output.Text(), "");
}

TEST_F(DevelopmentToolsFile, EverySwitch_TurnedOnAlone) {
  for (const std::string& key : kKeys) {
    EXPECT_THAT(SwitchesOn(Read(key + " = true\n")), ElementsAre(key));
  }
  EXPECT_EQ(output.Text(), "");
}

TEST_F(DevelopmentToolsFile, LinesThatTurnOn_On) {
  const std::vector<std::string> lines = {"OcspDisable=true",
                                          "OcspDisable = true\n",
                                          "OcspDisable= true",
                                          "OcspDisable\t=\ttrue\t",
                                          "OcspDisable = true ; why; and more",
                                          "OcspDisable=true;=false",
                                          "OcspDisable and more = true",
                                          "; comment\n\n   \nOcspDisable=true\n;"};
  for (const std::string& line : lines) {
    EXPECT_TRUE(Read(line).GetDevSwitchBool("OcspDisable")) << line;
  }
  EXPECT_EQ(output.Text(), "");
}

TEST_F(DevelopmentToolsFile, LinesThatLookAlike_Off) {
  const std::vector<std::string> lines = {
      "OcspDisable = True",        "OcspDisable = TRUE",     "OcspDisable = true true",
      "OcspDisable = true=",       "OcspDisable = \"true\"", "OcspDisable = 1",
      "OcspDisable = truely",      "OcspDisable = tru",      "OcspDisable = true\r\n",
      "OcspDisable = \t",          "ocspdisable = true",     "OcspDisabled = true",
      " OcspDisable = true",       "\tOcspDisable = true",   "; OcspDisable = true",
      "x = y = OcspDisable = true"};
  for (const std::string& line : lines) {
    EXPECT_FALSE(Read(line).GetDevSwitchBool("OcspDisable")) << line;
  }
  EXPECT_EQ(output.Text(), "");
}

struct BadLine {
  std::string line;
  std::string report;
};

TEST_F(DevelopmentToolsFile, MalformedLines_Reported) {
  const std::vector<BadLine> cases = {
      {"OcspDisable", "Couldn't find separator on line: 1"},
      {"OcspDisable true ; = true", "Couldn't find separator on line: 1"},
      {"\t", "Couldn't find separator on line: 1"},
      {"\r\n", "Couldn't find separator on line: 1"},
      {std::string(1, '\0'), "Couldn't find separator on line: 1"},
      {"=", "Bad format for line: 1"},
      {"= true", "Bad format for line: 1"},
      {" \t = true", "Bad format for line: 1"},
      {"OcspDisable =", "Bad format for line: 1"},
      {"OcspDisable =    \n", "Bad format for line: 1"},
      {"OcspDisable = ; true", "Bad format for line: 1"}};
  for (const BadLine& bad : cases) {
    output.Clear();
    EXPECT_THAT(SwitchesOn(Read(bad.line)), ElementsAre()) << bad.line;
    EXPECT_EQ(output.Text(), ">>> Development switches error: " + bad.report + "\n") << bad.line;
  }
}

TEST_F(DevelopmentToolsFile, MalformedLine_OtherLinesAreRead) {
  const DevelopmentTools tools = Read("; title\n\n  \nbroken\nno-check-all = true\n=\n");
  EXPECT_EQ(output.Text(),
            ">>> Development switches error: Couldn't find separator on line: 4\n"
            ">>> Development switches error: Bad format for line: 6\n");
  EXPECT_THAT(SwitchesOn(tools), ElementsAre("no-check-all"));
}

TEST_F(DevelopmentToolsFile, KeyTwice_ReportedAndFirstKept) {
  const DevelopmentTools tools = Read("no-check-ocsp = false\nno-check-ocsp = true\n");
  EXPECT_EQ(output.Text(), ">>> Development switches error: Can only have unique key names!\n");
  EXPECT_THAT(SwitchesOn(tools), ElementsAre());
}

TEST_F(DevelopmentToolsFile, FileAtSizeLimit_Read) {
  const DevelopmentTools tools = Read(PaddedTo(kMaxConfigFileBytes, "no-check-all=true\n"));
  EXPECT_EQ(output.Text(), "");
  EXPECT_THAT(SwitchesOn(tools), ElementsAre("no-check-all"));
}

TEST_F(DevelopmentToolsFile, FileAboveSizeLimit_RefusedAsAWhole) {
  const DevelopmentTools tools = Read(PaddedTo(kMaxConfigFileBytes + 1, "no-check-all=true\n"));
  EXPECT_EQ(output.Text(), ">>> Development switches error: File is too big: " + file + "\n");
  EXPECT_THAT(SwitchesOn(tools), ElementsAre());
}

TEST_F(DevelopmentToolsFile, UnknownBool_ReportedAndOff) {
  EXPECT_FALSE(WithoutFile().GetDevSwitchBool("no-check"));
  EXPECT_EQ(output.Text(), Red("Unknown Development Switch: no-check"));
}

TEST_F(DevelopmentToolsFile, KeyOfFileThatIsNoSwitch_ReportedAsUnknown) {
  const DevelopmentTools tools = Read("color = true\n");
  EXPECT_FALSE(tools.GetDevSwitchBool("color"));
  EXPECT_EQ(output.Text(), Red("Unknown Development Switch: color"));
}

TEST_F(DevelopmentToolsFile, AnyString_ReportedAndEmpty) {
  EXPECT_EQ(WithoutFile().GetDevSwitchString("OcspDisable"), "");
  EXPECT_EQ(output.Text(), Red("Unknown Development Switch: OcspDisable"));
}

TEST_F(DevelopmentToolsFile, AnyInt_ReportedWithoutColonAndZero) {
  EXPECT_EQ(WithoutFile().GetDevSwitchInt("OcspDisable"), 0);
  EXPECT_EQ(output.Text(), Red("Unknown Development Switch OcspDisable"));
}

TEST_F(DevelopmentToolsFile, CreateConfigFile_DefaultContents) {
  EXPECT_TRUE(WithoutFile().CreateConfigFile(file));
  EXPECT_EQ(ReadText(file), kDefaultFile);
  EXPECT_EQ(output.Text(), Green("Configuration File '" + file + "' created successfully"));
}

TEST_F(DevelopmentToolsFile, CreateConfigFile_FormerContentsReplaced) {
  WriteText(file, "no-check-all = true\n");
  EXPECT_TRUE(WithoutFile().CreateConfigFile(file));
  EXPECT_EQ(ReadText(file), kDefaultFile);
  EXPECT_THAT(tests::NamesIn(directory.Path()), ElementsAre("config.cfg"));
}

TEST_F(DevelopmentToolsFile, CreateConfigFileWithoutDirectory_Reported) {
  EXPECT_FALSE(WithoutFile().CreateConfigFile(directory.Path() + "/absent/config.cfg"));
  EXPECT_EQ(output.Text(), Red("Error creating the configuration file!"));
}

TEST_F(DevelopmentToolsFile, DefaultFile_TestModeOnAlone) {
  EXPECT_THAT(SwitchesOn(Read(kDefaultFile)), ElementsAre("TestModeEnabled"));
  EXPECT_EQ(output.Text(), "");
}

TEST_F(DevelopmentToolsFile, ModifyConfigFile_ThatLineOnly) {
  const std::string rest = "; c = 1\nb = true ; why\n\n c = 2\nno-check-all = false";
  WriteText(file, "a=1\nno-check = false    ; why\n" + rest);
  EXPECT_TRUE(WithoutFile().ModifyConfigFile("no-check", "true", file));
  EXPECT_EQ(ReadText(file), "a=1\nno-check = true\n" + rest);
  EXPECT_EQ(output.Text(), Green("Option 'no-check' value changed to 'true'"));
}

TEST_F(DevelopmentToolsFile, ModifyLastLineWithoutLineFeed_NoneAdded) {
  WriteText(file, "a = 1\nno-check-all = false");
  EXPECT_TRUE(WithoutFile().ModifyConfigFile("no-check-all", "true", file));
  EXPECT_EQ(ReadText(file), "a = 1\nno-check-all = true");
}

TEST_F(DevelopmentToolsFile, ModifyEverySwitchOfDefaultFile_ReadBack) {
  WriteText(file, kDefaultFile);
  for (const std::string& key : kKeys) {
    EXPECT_TRUE(WithoutFile().ModifyConfigFile(key, "true", file)) << key;
  }
  EXPECT_EQ(SwitchesOn(DevelopmentTools(file)), kKeys);
}

// What reading keeps of a key written twice is what writing changes.
TEST_F(DevelopmentToolsFile, ModifyKeyWrittenTwice_ReadingSeesNewValue) {
  WriteText(file, "OcspDisable = true\nOcspDisable = true\n");
  EXPECT_TRUE(WithoutFile().ModifyConfigFile("OcspDisable", "false", file));
  EXPECT_THAT(SwitchesOn(DevelopmentTools(file)), ElementsAre());
}

TEST_F(DevelopmentToolsFile, ModifyKeyThatIsNotThere_ReportedAndFileUnchanged) {
  const std::vector<std::string> files = {
      "",
      "; no-check = false\n",
      "a ; no-check = false\n",
      "no-check-all = false\n",
      "xno-check = false\n",
      "No-check = false\n",
      "no-check\n",
      " no-check = false\n",
      "a = no-check = false\n",
  };
  for (const std::string& text : files) {
    WriteText(file, text);
    output.Clear();
    EXPECT_FALSE(DevelopmentTools(file).ModifyConfigFile("no-check", "true", file)) << text;
    EXPECT_THAT(output.Text(), ::testing::EndsWith(Red("Option 'no-check' not found!"))) << text;
    EXPECT_EQ(ReadText(file), text);
  }
}

TEST_F(DevelopmentToolsFile, ModifyMissingFile_ReportedAndNotMade) {
  EXPECT_FALSE(WithoutFile().ModifyConfigFile("OcspDisable", "true", file));
  EXPECT_EQ(output.Text(), Red("Option 'OcspDisable' not found!"));
  EXPECT_THAT(tests::NamesIn(directory.Path()), ElementsAre());
}

TEST_F(DevelopmentToolsFile, ModifyFileAtSizeLimit_Changed) {
  WriteText(file, PaddedTo(kMaxConfigFileBytes, "a=1\n"));
  EXPECT_TRUE(WithoutFile().ModifyConfigFile("a", "2", file));
  EXPECT_EQ(ReadText(file).substr(0, 6), "a = 2\n");
}

TEST_F(DevelopmentToolsFile, ModifyFileAboveSizeLimit_ReportedAndUnchanged) {
  const std::string text = PaddedTo(kMaxConfigFileBytes + 1, "a=1\n");
  WriteText(file, text);
  EXPECT_FALSE(WithoutFile().ModifyConfigFile("a", "2", file));
  EXPECT_EQ(output.Text(), Red("Option 'a' not found!"));
  EXPECT_TRUE(ReadText(file) == text);
}

// A name so long that no file can stand beside it: the replacement fails for root as well.
TEST_F(DevelopmentToolsFile, ModifyFileThatCannotBeReplaced_ReportedAndUnchanged) {
  const std::string longName = directory.Path() + "/" + std::string(255, 'n');
  WriteText(longName, "a = 1\n");
  EXPECT_FALSE(WithoutFile().ModifyConfigFile("a", "2", longName));
  EXPECT_EQ(output.Text(), Red("Option 'a' could not be written: File name too long"));
  EXPECT_EQ(ReadText(longName), "a = 1\n");
}

TEST_F(DevelopmentToolsFile, ModifyLineThatStandsAlready_ReportedAndFileNotReplaced) {
  WriteText(file, "a = 1\nb = 2\n");
  struct stat before {};
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  EXPECT_TRUE(WithoutFile().ModifyConfigFile("a", "1", file));
  struct stat after {};
  ASSERT_EQ(::stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(output.Text(), Green("Option 'a' value changed to '1'"));
}

TEST_F(DevelopmentToolsFile, ModifyConfigFile_PermissionsKeptAndNothingLeftBeside) {
  WriteText(file, "a = 1\n");
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  EXPECT_TRUE(WithoutFile().ModifyConfigFile("a", "2", file));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_THAT(tests::NamesIn(directory.Path()), ElementsAre("config.cfg"));
}

TEST_F(DevelopmentToolsFile, CopyConfigFile_SameBytes) {
  const std::string copy = directory.Path() + "/copy.cfg";
  WriteText(file, kDefaultFile);
  EXPECT_TRUE(WithoutFile().CopyConfigFile(file, copy));
  EXPECT_EQ(ReadText(copy), kDefaultFile);
  EXPECT_EQ(output.Text(), Green("Configuration File copied successfully"));
}

TEST_F(DevelopmentToolsFile, CopyOfMissingFile_ReportedAndNothingMade) {
  EXPECT_FALSE(WithoutFile().CopyConfigFile(file, directory.Path() + "/copy.cfg"));
  EXPECT_EQ(output.Text(), Red("Error copying the configuration file!"));
  EXPECT_THAT(tests::NamesIn(directory.Path()), ElementsAre());
}

TEST_F(DevelopmentToolsFile, CopyIntoMissingDirectory_Reported) {
  WriteText(file, kDefaultFile);
  EXPECT_FALSE(WithoutFile().CopyConfigFile(file, directory.Path() + "/absent/copy.cfg"));
  EXPECT_EQ(output.Text(), Red("Error copying the configuration file!"));
}

TEST_F(DevelopmentToolsFile, SaveFile_WrittenAndReported) {
  WithoutFile().SaveFile("header", file, "{\n}");
  EXPECT_EQ(ReadText(file), "{\n}");
  EXPECT_EQ(output.Text(), ">>> Testlog: header written to '" + file + "'\n");
}

TEST_F(DevelopmentToolsFile, SaveFileWithoutDirectory_Reported) {
  const std::string path = directory.Path() + "/absent/header.json";
  WithoutFile().SaveFile("header", path, "{}");
  EXPECT_EQ(output.Text(), ">>> Testlog: Error writing header to '" + path + "'\n");
}

TEST_F(DevelopmentToolsFile, SaveBinaryFile_EveryByteWritten) {
  WithoutFile().SaveBinaryFile("signature", file, {0, 10, 13, 255});
  EXPECT_EQ(ReadText(file), std::string("\0\n\r\xff", 4));
  EXPECT_EQ(output.Text(), ">>> Testlog: signature written to '" + file + "'\n");
}

TEST_F(DevelopmentToolsFile, LoadFile_EveryByteAndReported) {
  const std::string bytes("\0\n\r\xff", 4);
  WriteText(file, bytes);
  EXPECT_EQ(WithoutFile().LoadFile("answer", file), bytes);
  EXPECT_EQ(output.Text(), ">>> answer read from '" + file + "'\n");
}

TEST_F(DevelopmentToolsFile, LoadOfMissingFile_EmptyAndReported) {
  EXPECT_EQ(WithoutFile().LoadFile("answer", file), "");
  EXPECT_EQ(output.Text(), ">>> Error reading answer from '" + file + "'\n");
}

TEST_F(DevelopmentToolsFile, LoadAboveSizeLimit_EmptyAndReported) {
  tests::WriteSparse(file, std::size_t{256} * 1024 * 1024 + 1);
  EXPECT_EQ(WithoutFile().LoadFile("answer", file), "");
  EXPECT_EQ(output.Text(), ">>> Error reading answer from '" + file + "'\n");
}

}  // namespace
}  // namespace development_tools
