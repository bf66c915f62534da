/// A process that can start no more threads, for tests of what code does then.
#ifndef TESTS_SUPPORT_NOMORETHREADS_H
#define TESTS_SUPPORT_NOMORETHREADS_H

#include <pthread.h>

#include <cstddef>

namespace tests {

/// While it lives, every new thread would need a stack that no machine has. One at a time.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    ::pthread_getattr_default_np(&former);
    pthread_attr_t impossible;
    ::pthread_attr_init(&impossible);
    ::pthread_attr_setstacksize(&impossible, std::size_t{1} << 47);
    ::pthread_setattr_default_np(&impossible);
    ::pthread_attr_destroy(&impossible);
  }
  ~NoMoreThreads() {
    ::pthread_setattr_default_np(&former);
    ::pthread_attr_destroy(&former);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
  pthread_attr_t former{};
};

}  // namespace tests

#endif
