/// A responder's answers by script, for tests of what asks about revocation. One thread asks.
#ifndef TESTS_DOUBLES_FAKEOCSPCONNECTION_H
#define TESTS_DOUBLES_FAKEOCSPCONNECTION_H

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/OcspConnectionIf.h"

namespace tests {

/// Every certificate is good unless a test says otherwise.
class FakeOcspConnection : public truststore_update_client::OcspConnectionIf {
 public:
  /// One call, with all that was asked.
  struct Question {
    std::vector<std::uint8_t> certificate;
    std::vector<std::uint8_t> issuer;
    std::string operationTypeId;
    std::string url;
  };

  [[nodiscard]] int CheckCertificate(const std::vector<std::uint8_t>& certificate,
                                     const std::vector<std::uint8_t>& issuer,
                                     const std::string& operationTypeId,
                                     const std::string& url) override {
    questions.push_back({certificate, issuer, operationTypeId, url});
    if (onCheck) onCheck();
    if (results.empty()) return truststore_update_client::kOcspGood;
    const int result = results.front();
    results.pop_front();
    return result;
  }

  std::vector<Question> questions;  ///< oldest first
  std::deque<int> results;          ///< of the next checks; when they have run out: good
  std::function<void()> onCheck;    ///< runs inside every check
};

}  // namespace tests

#endif
