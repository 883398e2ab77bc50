// SPDX-License-Identifier: Apache-2.0
// QipcProtocol: the numbers and names both ends of the QIPC channel agree on
// (docs/qipc-protocol.md). The library, ornsim, the tests and the benchmarks
// take them from here; every limit that depends on the frame size is derived
// from kMaxFrameSize where it is defined.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ornwick {
namespace qipc {

// Frames above this are a protocol error; both ends refuse to send or accept
// them. scripts/fuzz reads this line.
constexpr uint32_t kMaxFrameSize = 1u << 20;
constexpr size_t kFrameHeaderSize = 4;  // the big-endian body length

// Event types, the "eventType" of an event message.
enum EventType : int {
  kConnectionStatusEvent = 20,
  kStateChangeEvent = 21,
  kDisconnectedEvent = 22,  // raised by the library itself, never sent
  kClientRegisteredEvent = 23,
};

// Request types, the "requestType" of a request message.
enum RequestType : int {
  kPayloadRequest = 1,       // a RequestPayload text (QFI or DFI)
  kSubscriptionRequest = 2,  // raw text, sent as given
  kStateRequest = 3,
};

// Message kinds, the "kind" of every message.
enum class MessageKind {
  kEvent,     // service -> client: type = event type, text = payload
  kRegister,  // client -> service: type = connector type, text = client name
  kRequest,   // client -> service: id, type = request type, text = payload, sync
  kResponse,  // service -> client: id, code = response code, text = response data
};

struct MessageKindName {
  MessageKind kind;
  const char* name;
};
// clang-format off
constexpr MessageKindName kMessageKinds[] = {
    {MessageKind::kEvent, "event"},
    {MessageKind::kRegister, "register"},
    {MessageKind::kRequest, "request"},
    {MessageKind::kResponse, "response"},
};
// clang-format on

// The "kind" text of `kind`.
constexpr const char* messageKindName(MessageKind kind) {
  for (const auto& k : kMessageKinds)
    if (k.kind == kind)
      return k.name;
  return "?";
}

}  // namespace qipc
}  // namespace ornwick
