// SPDX-License-Identifier: Apache-2.0
// RequestHandler: subscription requests (create, delete, get), owned by client
// name.
#include "JsonText.h"
#include "RequestHandlerInternal.h"

namespace ornsim {

using rapidjson::Value;

void writeSubscription(JsonWriter& w, const Subscription& s) {
  w.StartObject();
  writeMember(w, "subscriptionId", s.id);
  w.Key("entities");
  w.StartObject();
  if (!s.endpointId.empty()) {
    w.Key("endpoint");
    w.StartObject();
    w.Key("type");
    w.String("Endpoint");
    writeMember(w, "id", s.endpointId);
    w.EndObject();
  } else {
    w.Key("endpointGroup");
    w.StartObject();
    writeMember(w, "id", s.groupId);
    w.EndObject();
  }
  w.EndObject();
  w.Key("eventTypes");
  w.StartArray();
  for (const auto& t : s.eventTypes) {
    w.StartObject();
    writeMember(w, "namespace", t.nameSpace);
    writeMember(w, "name", t.name);
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
}

// Reads one subscription element; false with *err when it is malformed.
bool readSubscription(const Value& v, Subscription* s, std::string* err) {
  const Value* entities = findMember(v, "entities");
  const Value* endpoint = entities ? findMember(*entities, "endpoint") : nullptr;
  const Value* group = entities ? findMember(*entities, "endpointGroup") : nullptr;
  if (endpoint != nullptr)
    getString(*endpoint, "id", &s->endpointId);
  if (s->endpointId.empty() && group != nullptr)
    getString(*group, "id", &s->groupId);
  if (s->endpointId.empty() && s->groupId.empty()) {
    *err =
        "each subscription needs \"entities\" with an endpoint or "
        "endpointGroup id";
    return false;
  }
  if (const Value* types = findMember(v, "eventTypes"); types && types->IsArray())
    for (const auto& t : types->GetArray()) {
      EventTypeRef ref;
      if (!getString(t, "namespace", &ref.nameSpace)) {
        *err = "each event type needs a string \"namespace\"";
        return false;
      }
      getString(t, "name", &ref.name);
      s->eventTypes.push_back(ref);
    }
  return true;
}

bool roomFor(const Subscriptions& subs, const std::string& client,
             const std::vector<Subscription>& given) {
  Subscriptions added(subs.maxPerClient());  // each new one once
  const size_t limit = static_cast<size_t>(subs.maxPerClient());
  for (const auto& s : given) {
    if (subs.find(client, s) == nullptr)
      added.add(client, s);
    if (subs.count(client) + added.count(client) > limit)
      return false;
  }
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartArray();
  for (const Subscriptions* list : {&subs, static_cast<const Subscriptions*>(&added)})
    for (const auto& s : list->of(client))
      writeSubscription(w, s);
  w.EndArray();
  return buf.GetSize() <= kMaxListingBytes;
}

bool roomForClient(const Subscriptions& subs, const std::string& client,
                   const std::vector<Subscription>& given) {
  return given.empty() || subs.count(client) != 0 ||
         subs.clients() < static_cast<size_t>(subs.maxClients());
}

std::string tooManyClients(const Subscriptions& subs) {
  return "subscriptions are kept for at most " + std::to_string(subs.maxClients()) +
         " client names at once (--max-clients); nothing was created";
}

// Whether a create's answer, which lists every entry given (repeats included),
// fits in a frame whatever ids they get.
bool answerFits(const std::vector<Subscription>& given) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("subscriptions");
  w.StartArray();
  for (Subscription s : given) {
    s.id = "sub-18446744073709551615";
    writeSubscription(w, s);
  }
  w.EndArray();
  w.EndObject();
  return escapedSize(buf.GetString()) <= kMaxAnswerBytes;
}

std::string tooManySubscriptions(const Subscriptions& subs) {
  return "a client holds at most " + std::to_string(subs.maxPerClient()) +
         " subscriptions, listed in at most " + std::to_string(kMaxListingBytes) + " bytes";
}

Reply handleSubscription(const Home& home, Subscriptions& subs, const std::string& client,
                         const Value& doc) {
  std::string operation;
  if (!getString(doc, "operation", &operation))
    return fail(400, "invalid_subscription", "the request needs a string \"operation\"");
  const Value* list = findMember(doc, "subscriptions");
  if (list != nullptr && !list->IsArray())
    return fail(400, "invalid_subscription", "\"subscriptions\" must be an array");
  if (operation != "create" && operation != "delete" && operation != "get")
    return fail(400, "unknown_operation", "no subscription operation " + operation);
  std::vector<Subscription> given;
  if (list != nullptr && operation != "get")
    for (const auto& v : list->GetArray()) {
      Subscription s;
      std::string err;
      if (!readSubscription(v, &s, &err))
        return fail(400, "invalid_subscription", err);
      // Only new subscriptions must name something that exists; deleting is
      // allowed to miss.
      if (operation == "create" && !s.endpointId.empty() &&
          home.findDevice(s.endpointId) == nullptr)
        return fail(404, "unknown_endpoint", "no endpoint " + s.endpointId);
      if (operation == "create" && !s.groupId.empty() && home.findGroup(s.groupId) == nullptr)
        return fail(404, "unknown_group", "no group " + s.groupId);
      given.push_back(std::move(s));
    }
  // All or nothing, like an unknown endpoint.
  if (operation == "create" && !roomForClient(subs, client, given))
    return fail(400, "too_many_clients", tooManyClients(subs));
  if (operation == "create" && !roomFor(subs, client, given))
    return fail(400, "too_many_subscriptions", tooManySubscriptions(subs));
  if (operation == "create" && !answerFits(given))
    return fail(400, "answer_too_large",
                "the answer would list " + std::to_string(given.size()) +
                    " subscriptions, more than fit in one frame; nothing was created");
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  if (operation == "delete") {
    int removed = 0;
    for (const auto& s : given)
      removed += subs.remove(client, s.endpointId, s.groupId, s.eventTypes);
    w.Key("deleted");
    w.Int(removed);
  } else {
    std::vector<Subscription> shown =
        operation == "get" ? subs.of(client) : std::vector<Subscription>{};
    if (operation == "create")
      for (auto& s : given)
        shown.push_back(subs.add(client, std::move(s)));
    w.Key("subscriptions");
    w.StartArray();
    for (const auto& s : shown)
      writeSubscription(w, s);
    w.EndArray();
  }
  w.EndObject();
  return {200, buf.GetString()};
}

}  // namespace ornsim
