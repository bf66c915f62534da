/// What arrives as a protobuf message: jobs of the backend. Used by the client's main thread.
///
/// No state; any thread.
#ifndef TRUSTSTOREUPDATECLIENT_PROTOBUFFERS_H
#define TRUSTSTOREUPDATECLIENT_PROTOBUFFERS_H

#include <string>

namespace truststore_update_client {

/// Reads jobs.
class Protobuffers {
 public:
  /// Sets `containerId` to the id that the job in `payload` names: empty when it names none, and
  /// after a payload that is no such message (truncated, or with an id that is no UTF-8), which one
  /// log line tells. Bytes from anybody: what the message library has to say about them is not
  /// written anywhere. Throws std::bad_alloc only.
  void ParseMqttJobRequest(std::string& containerId, const std::string& payload) const;
};

}  // namespace truststore_update_client

#endif
