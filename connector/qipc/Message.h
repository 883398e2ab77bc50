// SPDX-License-Identifier: Apache-2.0
// QIPC messages: the JSON objects carried one per frame between client and
// service.
#pragma once

#include <string>

#include "QipcProtocol.h"

namespace ornwick {
namespace qipc {

struct Message {
  MessageKind kind = MessageKind::kEvent;
  std::string id;
  int type = 0;
  int code = 0;
  std::string text;
  bool sync = false;
};

// The message's JSON text (docs/qipc-protocol.md has the shapes).
std::string encodeMessage(const Message& message);

// Returns false and sets *err when the text is not a well-formed message.
bool decodeMessage(const std::string& text, Message* message, std::string* err);

}  // namespace qipc
}  // namespace ornwick
