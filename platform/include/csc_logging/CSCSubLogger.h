/// Log entries that begin with the name of one component. Immutable after construction: any thread.
#ifndef CSC_LOGGING_CSCSUBLOGGER_H
#define CSC_LOGGING_CSCSUBLOGGER_H

#include <string>
#include <string_view>

#include "csc_logging/CSCLogEntry.h"

namespace csc_logging {

/// Keeps the prefix name + ": " and begins entries with it.
class CSCSubLogger {
 public:
  explicit CSCSubLogger(const std::string& name) : prefix(name + ": ") {}

  /// An entry that holds the prefix.
  [[nodiscard]] CSCLogEntry SubEntry() const { return SubLog(""); }

  /// An entry that holds the prefix and `text`.
  [[nodiscard]] CSCLogEntry SubLog(std::string_view text) const {
    CSCLogEntry entry;
    entry << prefix << text;
    return entry;
  }

 private:
  std::string prefix;
};

}  // namespace csc_logging

#endif
