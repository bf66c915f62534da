// ostra::tee: which store the process has. Apart, so that tests can make stores of their own.
#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "tests/other_platform/Surroundings.h"
#include "tests/other_platform/TrustStoreInMemory.h"

namespace ostra::tee {

std::shared_ptr<TrustStoreUpdateAPI> TrustStoreUpdateAPI::get_instance() {
  static const auto store =
      std::make_shared<other_platform::TrustStoreInMemory>(other_platform::kFactoryFolder);
  return store;
}

}  // namespace ostra::tee
