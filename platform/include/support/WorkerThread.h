/// How threads of the client and of the host platform begin: with a name, and with every signal
/// blocked, so that signals reach the main thread and interrupt no work. Any thread. Header-only;
/// an implementation of the platform keeps this file as it is.
#ifndef SUPPORT_WORKERTHREAD_H
#define SUPPORT_WORKERTHREAD_H

#include <pthread.h>
#include <signal.h>

#include <thread>
#include <utility>

namespace support {

/// While it lives, the calling thread blocks every signal, and threads that it makes inherit that.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &former);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &former, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t former{};
};

/// Runs `body`, which must not throw, on a new thread called `name` (at most 15 characters; it
/// lives as long as the thread). Throws std::exception when the thread cannot be made.
template <typename Body>
[[nodiscard]] std::thread StartThread(const char* name, Body body) {
  const SignalsBlocked blocked;
  return std::thread([name, run = std::move(body)] {
    ::pthread_setname_np(::pthread_self(), name);
    run();
  });
}

}  // namespace support

#endif
