// SPDX-License-Identifier: Apache-2.0
// Pieces of RequestHandler shared by its files; not part of its interface.
#pragma once

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "Control.h"
#include "Home.h"
#include "JsonText.h"
#include "QipcProtocol.h"
#include "Subscriptions.h"

namespace ornsim {

// One operation's answer: a response code and JSON text.
struct Reply {
  int code;
  std::string json;
};

inline Reply fail(int code, const std::string& error, const std::string& message) {
  return {code, errorJson(error, message)};
}

// An answer's JSON text, escaped into a response message, fits in a frame
// when it stays below this: the rest is room for the message around it and a
// request id of up to 64 KiB less a little.
constexpr size_t kAnswerRoom = 64u << 10;
static_assert(ornwick::qipc::kMaxFrameSize > 2 * kAnswerRoom,
              "a frame must hold more than its room");
constexpr size_t kMaxAnswerBytes = ornwick::qipc::kMaxFrameSize - kAnswerRoom;
// The length of `json` once escaped as a JSON string.
size_t escapedSize(const std::string& json);

// Answers a request on a path under /sim/, split at "/" into `segments`.
Reply controlRequest(Control& control, Home& home, const std::string& method,
                     const std::vector<std::string>& segments, const rapidjson::Value* body,
                     std::vector<StateChange>* changes);

// Writes a subscription as the create answer shows it.
void writeSubscription(JsonWriter& w, const Subscription& s);
// Reads one element of a request's "subscriptions"; false with *err when it is malformed.
bool readSubscription(const rapidjson::Value& v, Subscription* s, std::string* err);

// A client's "get" answer stays below this, so that, escaped into a response,
// it always fits in one frame: escaping JSON text into a string at most
// doubles it (only its quotes and backslashes grow), and the response's other
// members take a few hundred bytes.
constexpr size_t kMaxListingBytes = ornwick::qipc::kMaxFrameSize / 4;
static_assert(2 * kMaxListingBytes + 4096 <= ornwick::qipc::kMaxFrameSize,
              "an escaped listing must fit in a frame");
// Whether `client` may hold `given` on top of what it has, by count and by the
// length of its listing; repeats of a held subscription take no room.
bool roomFor(const Subscriptions& subs, const std::string& client,
             const std::vector<Subscription>& given);
// Why roomFor() said no.
std::string tooManySubscriptions(const Subscriptions& subs);
// Whether `client` may hold subscriptions besides the names holding some now.
bool roomForClient(const Subscriptions& subs, const std::string& client,
                   const std::vector<Subscription>& given);
// Why roomForClient() said no.
std::string tooManyClients(const Subscriptions& subs);

// Answers a subscription request (type 2) of `client`.
Reply handleSubscription(const Home& home, Subscriptions& subs, const std::string& client,
                         const rapidjson::Value& doc);

}  // namespace ornsim
