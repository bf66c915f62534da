#include "platform/host/csc_logging/DltContexts.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace platform_host {
namespace {

std::string IdFor(std::string_view text) {
  return kDltContexts.at(DltContextOf(text)).id;
}

TEST(DltContexts, Ids_UniqueAndOfAtMostFourCharacters) {
  std::set<std::string> ids;
  for (const auto& context : kDltContexts) {
    const std::string id = context.id;
    EXPECT_TRUE(ids.insert(id).second) << id;
    EXPECT_TRUE(!id.empty() && id.size() <= 4) << id;
    EXPECT_EQ(id.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos) << id;
    EXPECT_STRNE(context.description, "") << id;
  }
}

TEST(DltContexts, OnlyTheFirst_HasNoComponent) {
  for (const auto& context : kDltContexts) {
    EXPECT_EQ(context.components.empty(), &context == kDltContexts.data()) << context.id;
  }
}

TEST(DltContexts, LineWithAName_ContextOfItsComponent) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"HttpConnection: Receive Timeout", "HTTP"},
      {"HSM: OCSP retries Enabled", "HSM"},
      {"OCSP: Unexpected Error!", "OCSP"},
      {"SocksTlsAlertClient: Listening failed, trying again later", "SOCK"},
      {"SocksTlsAlertClientConnector: New connector: /a", "SOCK"},
      {"SocksTlsAlertClientCommunicator: Socket closed", "SOCK"},
      {"ProcessLifecycleAdapterApiImpl::Start", "LIFE"},
      {"ProcessLifecycleAdapter::Reading application configuration failed", "LIFE"},
      {"libaralog: /a: No such file or directory", "HLOG"},
      {"libwork_lock_host: waits", "HLCK"},
      {"HSM:", "HSM"},
  };
  for (const auto& [text, id] : cases) EXPECT_EQ(IdFor(text), id) << text;
}

TEST(DltContexts, LineWithoutAName_First) {
  const std::vector<std::string> cases = {
      "",
      ":",
      " :",
      ": HSM:",
      "HSM",
      "HSM ",
      "hsm: a",
      "HSMX: a",
      " HSM: a",
      "Error: HSM: a",
      "SocksTlsAlertClient SocksTlsAlertClientConnector: a",
      "SocksTlsAlertClient : a",
      "Send Update Status to the Device Platform: STATUS_CODE_SUCCESS",
      std::string("HSM\0: a", 7),
      "Truststore Update Client Ready",
  };
  for (const auto& text : cases) EXPECT_EQ(IdFor(text), "MAIN") << text;
}

}  // namespace
}  // namespace platform_host
