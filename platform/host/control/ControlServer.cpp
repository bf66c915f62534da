#include "platform/host/control/ControlServer.h"

#include <exception>
#include <utility>

#include "platform/host/control/ControlLoop.h"
#include "support/WorkerThread.h"

namespace platform_host {

Result<std::unique_ptr<ControlServer>> ControlServer::Start(const std::string& path,
                                                            ControlBoard& board) {
  try {
    auto loop = std::make_unique<ControlLoop>(path, board);
    if (const auto failure = loop->Open()) return *failure;
    return std::unique_ptr<ControlServer>(new ControlServer(std::move(loop)));
  } catch (const std::exception& error) {
    return Error(error.what()).WithContext(path);
  }
}

ControlServer::ControlServer(std::unique_ptr<ControlLoop> opened)
    : loop(std::move(opened)),
      thread(support::StartThread("HostControl", [work = loop.get()] { work->Run(); })) {}

ControlServer::~ControlServer() {
  loop->Stop();
  thread.join();
}

}  // namespace platform_host
