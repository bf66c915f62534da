/// The states that state management asks the client to enter.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSSTATE_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSSTATE_H

#include <cstdint>

namespace process_lifecycle_adapter {

/// Each stands for the state of the same name. Any other value is invalid.
enum class ProcessState : std::uint8_t {
  kOn = 1,      ///< at work
  kPrepSD = 2,  ///< ready for the unit to shut down
};

}  // namespace process_lifecycle_adapter

#endif
