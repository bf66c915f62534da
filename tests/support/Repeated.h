/// For tests that disturb what they test at every instant. Belongs to the thread that makes it.
#ifndef TESTS_SUPPORT_REPEATED_H
#define TESTS_SUPPORT_REPEATED_H

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace tests {

/// Repeats an action on a thread of its own while it lives; the first turn is over when it is made.
class Repeated {
 public:
  explicit Repeated(std::function<void()> action)
      : thread([this, act = std::move(action)] {
          while (!isEnding) {
            act();
            isAtWork = true;
          }
        }) {
    while (!isAtWork) std::this_thread::yield();
  }
  ~Repeated() {
    isEnding = true;
    thread.join();
  }
  Repeated(const Repeated&) = delete;
  Repeated& operator=(const Repeated&) = delete;

 private:
  std::atomic<bool> isEnding{false};
  std::atomic<bool> isAtWork{false};
  std::thread thread;  ///< last: it uses the members above
};

}  // namespace tests

#endif
