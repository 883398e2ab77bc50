// Pieces of RequestHandler shared by its files; not part of its interface.
#pragma once

#include <rapidjson/document.h>

#include <string>

#include "Home.h"
#include "JsonText.h"
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

// Answers a subscription request (type 2) of `client`.
Reply handleSubscription(const Home& home, Subscriptions& subs, const std::string& client,
                         const rapidjson::Value& doc);

}  // namespace ornsim
