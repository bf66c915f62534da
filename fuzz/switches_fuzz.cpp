// The development switches file: any text is read without harm, and no switch is on that the file
// does not name.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>

#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "fuzz/Require.h"
#include "support/FileContents.h"
#include "support/UniqueFd.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::cout.setstate(std::ios::failbit);
  const support::UniqueFd file(::memfd_create("switches", MFD_CLOEXEC));
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  fuzz::Require(support::WriteAll(file.Get(), size == 0 ? "" : text) == 0, "memory holds the file");
  const std::string path = "/proc/self/fd/" + std::to_string(file.Get());
  const development_tools::DevelopmentTools tools(path);
  for (const auto& entry : development_tools::kDevelopmentSwitches) {
    const bool on = tools.GetDevSwitchBool(entry.key);
    fuzz::Require(!on || text.find(entry.key) != std::string_view::npos,
                  "a switch that the file does not name is off");
  }
  return 0;
}
