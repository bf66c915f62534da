/// Wakes the control thread out of poll(2). For ControlLoop, and for answers that come from other
/// threads, perhaps after the loop has ended. Any thread.
#ifndef PLATFORM_HOST_CONTROL_WAKEEVENT_H
#define PLATFORM_HOST_CONTROL_WAKEEVENT_H

#include <sys/eventfd.h>

#include "support/UniqueFd.h"

namespace platform_host {

/// An eventfd.
class WakeEvent {
 public:
  /// May fail: then IsOpen is false and the rest does nothing.
  WakeEvent() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  [[nodiscard]] bool IsOpen() const { return event.IsOpen(); }

  /// Readable from Raise to Clear.
  [[nodiscard]] int Descriptor() const { return event.Get(); }

  /// Makes Descriptor readable. Only a full counter refuses it, and that is readable as well.
  void Raise() const noexcept { ::eventfd_write(event.Get(), 1); }

  /// Forgets every Raise so far.
  void Clear() const noexcept {
    eventfd_t count = 0;
    ::eventfd_read(event.Get(), &count);
  }

 private:
  const support::UniqueFd event;
};

}  // namespace platform_host

#endif
