/// How this process tells its service manager of its state. Any thread, while nobody changes the
/// environment.
#ifndef PLATFORM_HOST_ARA_EXEC_SERVICEMANAGER_H
#define PLATFORM_HOST_ARA_EXEC_SERVICEMANAGER_H

#include <chrono>

namespace platform_host {

/// How long a service manager that is behind is waited for.
inline constexpr std::chrono::seconds kServiceManagerPatience{1};

/// Sends `notification` to the socket that NOTIFY_SOCKET names: a path, or an abstract name that
/// begins with "@". The protocol is that of sd_notify(3), whose own implementation waits without
/// limit: a service manager that has stopped reading would stop the process, its end included.
/// Returns 0, also without a NOTIFY_SOCKET, or an errno: EAGAIN when the patience was in vain.
[[nodiscard]] int NotifyServiceManager(const char* notification);

}  // namespace platform_host

#endif
