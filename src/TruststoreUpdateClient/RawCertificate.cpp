#include "TruststoreUpdateClient/RawCertificate.h"

#include <botan/data_src.h>

namespace truststore_update_client {

RawCertificate::RawCertificate(const std::vector<std::uint8_t>& encoding) {
  Botan::DataSource_Memory source(encoding.data(), encoding.size());
  load_data(source);
}

std::string RawCertificate::PEM_label() const {
  return "CERTIFICATE";
}

std::vector<std::string> RawCertificate::alternate_PEM_labels() const {
  return {"X509 CERTIFICATE"};
}

}  // namespace truststore_update_client
