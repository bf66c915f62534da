/// How threads of these libraries begin: as those of the client do.
#ifndef PLATFORM_HOST_THREADS_WORKERTHREAD_H
#define PLATFORM_HOST_THREADS_WORKERTHREAD_H

#include "support/WorkerThread.h"

namespace platform_host {

using support::SignalsBlocked;
using support::StartThread;

}  // namespace platform_host

#endif
