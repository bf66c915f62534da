// ara::stm: each line of a pipe is a state that the component is to enter.
#include "ara/stm/ComponentClient.h"

#include <atomic>
#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "tests/other_platform/LineReader.h"
#include "tests/other_platform/Surroundings.h"

namespace ara::stm {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

/// Whether the process has its client.
std::atomic<bool> isTaken{false};

/// The pipe's reader calls the handler: its end waits for a call under way.
class PipeComponentClient : public ComponentClient {
 public:
  explicit PipeComponentClient(StateChangeHandler stateHandler)
      : handler(std::move(stateHandler)),
        reader(other_platform::kStatesPipe,
               [this](const std::string& state) { handler(*this, ++lastSequence, state); }) {}

  void ConfirmState(std::uint32_t sequence, const std::string& state) noexcept override {
    try {
      CSCLogging::LogInfo(CSCLogEntry() << "other_platform: state " << state << " (" << sequence
                                        << ") confirmed");
    } catch (const std::exception&) {
    }
  }

  ~PipeComponentClient() override { isTaken = false; }

 private:
  const StateChangeHandler handler;
  std::uint32_t lastSequence = 0;  // the reader's
  other_platform::LineReader reader;
};

}  // namespace

ComponentClientResult createComponentClient(const std::string& /*name*/,
                                            StateChangeHandler handler) noexcept {
  if (isTaken.exchange(true)) return {nullptr, "the process has a component client already"};
  try {
    return {std::make_unique<PipeComponentClient>(std::move(handler)), ""};
  } catch (const std::exception&) {
    isTaken = false;
    return {nullptr, "there are no means for a component client"};
  }
}

}  // namespace ara::stm
