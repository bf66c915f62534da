/// Asks the process that serves the control socket. For the commands; any thread.
#ifndef TOOLS_PLATFORMCTL_QUESTION_H
#define TOOLS_PLATFORMCTL_QUESTION_H

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/host/config/Result.h"

namespace platformctl {

/// Objects and arrays within each other that an answer may have; a status of today has 6. What
/// shows an answer works level by level and would need a stack as deep.
inline constexpr int kMaxAnswerDepth = 32;

/// One request and how long its answer may take.
struct Question {
  nlohmann::json request;              ///< an object
  std::chrono::milliseconds patience;  ///< for all of it, connecting included
  std::string whenLate;                ///< the error once the patience is over
};

/// Asks at the socket `path`, which has at most kMaxSocketPathBytes. Returns the answer: an object
/// whose "ok" is true. Fails with what the process refuses with, with whenLate, or with a text that
/// names the path: nobody serves there, the connection ended, the answer is none, longer than the
/// socket's limit or deeper than kMaxAnswerDepth. Blocks up to the patience. Throws std::bad_alloc.
[[nodiscard]] platform_host::Result<nlohmann::json> Ask(const std::string& path,
                                                        const Question& question);

}  // namespace platformctl

#endif
