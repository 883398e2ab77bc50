// SPDX-License-Identifier: Apache-2.0
// The request model's JSON texts, one row a record. The texts the tool sends whole are pinned
// by the one-shot end-to-end cases; these rows are the corners those cannot reach.
#include <gtest/gtest.h>

#include <functional>

#include "DFIRequest.h"
#include "ORNRequestBuilder.h"
#include "QFIRequest.h"
#include "QfiPath.h"
#include "RequestPayload.h"
#include "SubscriptionRequest.h"

namespace ornwick::ornConnector::api {
namespace {
// clang-format off

std::shared_ptr<QFIRequest> qfi(const char* path, int method = QFIRequest::GET, const char* body = "") {
  auto r = std::make_shared<QFIRequest>();
  r->path = path;
  r->method = static_cast<QFIRequest::Method>(method);
  r->requestBody = body;
  return r;
}

std::shared_ptr<DFIRequest> dfi(const char* name, const char* payload = "") {
  auto r = std::make_shared<DFIRequest>();
  r->name = name;
  r->payload = payload;
  return r;
}

// A directive from the builder, which fills the header's version.
std::string builtDfi(const char* payload) {
  ORNRequestBuilder parent;
  DFIRequestBuilder b(&parent);
  b.request()->payload = payload;
  return b.request()->toJsonString();
}

std::string payload(std::shared_ptr<QFIRequest> q, std::vector<std::shared_ptr<DFIRequest>> dfis) {
  return RequestPayload{std::move(q), std::move(dfis)}.toJsonString();
}

// The path's text, which a factory also stores.
std::string rendered(const QfiPath& p) { return p.path == p.toString() ? p.path : "stored " + p.path; }

std::string subscriptions(const std::function<void(SubscriptionRequestBuilder&)>& fill) {
  SubscriptionRequestBuilder r;
  fill(r);
  return r.request()->toJsonString();
}

// The request's id, type, option, [context] and payload. Only the last addQfi counts.
std::string built(int32_t type, bool withQfi, const char* raw) {
  ORNRequestBuilder b;
  b.requestId = "rid";
  b.requestType = type;
  b.requestOption = 4;
  b.rawPayload = raw;
  if (withQfi)
    b.addQfi("/a", QFIRequest::GET, "").addQfi("/b", QFIRequest::POST, R"({"x":1})");
  auto r = b.build();
  return r->requestId + " " + std::to_string(r->requestType) + " " + std::to_string(r->requestOption) + " [" + r->requestContext + "] " + r->payload;
}

constexpr char kHeadAndEndpoint[] = R"({"header":{"namespace":"","name":"","payloadVersion":"3.0"},"endpoint":{"entityId":"","endpointId":"","friendlyName":""})";
constexpr char kDfiA[] = R"({"header":{"namespace":"","name":"A","payloadVersion":""},"endpoint":{"entityId":"","endpointId":"","friendlyName":""}})";
constexpr char kDfiB[] = R"({"header":{"namespace":"","name":"B","payloadVersion":""},"endpoint":{"entityId":"","endpointId":"","friendlyName":""},"payload":[]})";
constexpr char kPostB[] = R"({"qfi":{"path":"/b","method":"POST","requestBody":{"x":1}},"dfi":[]})";

TEST(RequestModel, JsonTexts) {
  using S = SubscriptionRequestBuilder;
  static const struct { const char* name; std::function<std::string()> text; std::string want; } kCases[] = {
      {"qfi GET", [] { return qfi("/v2/endpoints/id1/features/power/")->toJsonString(); }, R"({"path":"/v2/endpoints/id1/features/power/","method":"GET"})"},
      {"qfi method 0", [] { return qfi("/p", 0)->toJsonString(); }, R"({"path":"/p","method":"UNKNOWN"})"},
      {"qfi method 3", [] { return qfi("/p", 3)->toJsonString(); }, R"({"path":"/p","method":"UNKNOWN"})"},
      {"qfi array body", [] { return qfi("/p", 1, " [ 1 , 2.0 ] ")->toJsonString(); }, R"({"path":"/p","method":"GET","requestBody":[1,2.0]})"},
      {"qfi string body", [] { return qfi("/p", 1, R"("text")")->toJsonString(); }, R"({"path":"/p","method":"GET","requestBody":"text"})"},
      {"qfi bad body", [] { return qfi("/p", 2, "{bad")->toJsonString(); }, ""},
      {"qfi two bodies", [] { return qfi("/p", 2, "{} {}")->toJsonString(); }, ""},
      {"qfi blank body", [] { return qfi("/p", 2, " ")->toJsonString(); }, ""},
      {"qfi quote in path", [] { return qfi("/q\"")->toJsonString(); }, R"({"path":"/q\"","method":"GET"})"},
      // No payload, "{}", "{bad" and the depth bound are pinned by the dfi end-to-end cases.
      {"dfi array", [] { return builtDfi("[1,2]"); }, std::string(kHeadAndEndpoint) + R"(,"payload":[1,2]})"},
      {"dfi number", [] { return builtDfi("5"); }, std::string(kHeadAndEndpoint) + R"(,"payload":5})"},
      {"dfi spaced", [] { return builtDfi(R"( {"a" : {"b":null}} )"); }, std::string(kHeadAndEndpoint) + R"(,"payload":{"a":{"b":null}}})"},
      {"dfi trailing junk", [] { return builtDfi("{}x"); }, ""},
      {"payload of nothing", [] { return payload(nullptr, {}); }, ""},
      {"qfi first, dfis in order", [] { return payload(qfi("/p"), {dfi("B", "[]"), dfi("A")}); }, std::string(R"({"qfi":{"path":"/p","method":"GET"},"dfi":[)") + kDfiB + "," + kDfiA + "]}"},
      {"unparseable dfi is null", [] { return payload(nullptr, {dfi("A"), dfi("X", "{bad"), nullptr}); }, std::string(R"({"dfi":[)") + kDfiA + ",null,null]}"},
      {"unparseable qfi is null", [] { return payload(qfi("/p", 1, "nope"), {}); }, R"({"qfi":null,"dfi":[]})"},
      {"path batch", [] { return rendered(QfiPath::batchDirective("power", "turnOn")); }, "/v2/endpoints/batch/interfaces/power/turnOn/"},
      {"path batch, no directive", [] { return rendered(QfiPath::batchDirective("power", "")); }, "/v2/endpoints/batch/interfaces/power/"},
      {"path feature", [] { return rendered(QfiPath::endpointFeature("id1", "power")); }, "/v2/endpoints/id1/features/power/"},
      {"path feature, odd id", [] { return rendered(QfiPath::endpointFeature("a b/c", "")); }, "/v2/endpoints/a b/c/features//"},
      {"path query", [] { return rendered(QfiPath::endpointQuery({})); }, "/v2/endpoints"},
      // Other kinds give the stored path, whatever the other fields hold.
      {"path whole", [] { return QfiPath{QfiPath::kWhole, "", "", "id1", "power", {}, "v2/no/leading/slash"}.toString(); }, "v2/no/leading/slash"},
      {"path unknown kind", [] { return QfiPath{7, "", "", "id1", "power", {}, "/custom"}.toString(); }, "/custom"},
      // The create, delete and list texts are pinned end to end.
      {"delete, empty entities and event types", [] { return subscriptions([](S& r) { r.request()->operation = SubscriptionRequest::DELETE; SubscriptionBuilder(&r).append(); }); },
       R"({"operation":"delete","subscriptions":[{"entities":{},"eventTypes":[]}]})"},
      {"unknown operation", [] { return subscriptions([](S& r) { r.request()->operation = static_cast<SubscriptionRequest::Operation>(0); }); },
       R"({"operation":"unknown","subscriptions":[]})"},
      {"same event twice, group after endpoint", [] { return subscriptions([](S& r) { SubscriptionBuilder(&r).withEndpointGroup("g1").withEndpoint("e1").withEventType("n", "x").withEventType("n", "x").append(); }); },
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e1"},"endpointGroup":{"id":"g1"}},"eventTypes":[{"namespace":"n","name":"x"},{"namespace":"n","name":"x"}]}]})"},
      {"null entries skipped, null entities written {}", [] { return subscriptions([](S& r) {
         SubscriptionBuilder s(&r);
         s.subscription()->entities = nullptr;
         s.subscription()->eventTypes.push_back(nullptr);
         r.request()->subscriptions.push_back(nullptr);
         s.append();
       }); }, R"({"operation":"create","subscriptions":[{"entities":{},"eventTypes":[]}]})"},
      {"type 1 with nothing", [] { return built(1, false, "ignored"); }, "rid 1 4 [] "},
      {"type 0 still uses the payload", [] { return built(0, true, "ignored"); }, std::string("rid 0 4 [] ") + kPostB},
      {"type 3 uses the payload", [] { return built(3, true, ""); }, std::string("rid 3 4 [] ") + kPostB},
      {"type 2 is raw verbatim", [] { return built(2, true, " {not json "); }, "rid 2 4 []  {not json "},
      {"type 2 with empty raw", [] { return built(2, true, ""); }, "rid 2 4 [] "},
  };
  for (const auto& c : kCases)
    EXPECT_EQ(c.want, c.text()) << c.name;
  const std::string query = QfiPath::endpointQuery({{"a", "1"}, {"b", "2"}}).toString();
  EXPECT_TRUE(query == "/v2/endpoints?a=1&b=2" || query == "/v2/endpoints?b=2&a=1") << query;
}

TEST(DFIRequestBuilder, AppendsToTheParentPayloadInOrder) {
  ORNRequestBuilder parent;
  DFIRequestBuilder first(&parent);
  first.request()->name = "A";
  DFIRequestBuilder second(&parent);
  second.request()->name = "B";
  EXPECT_EQ(&parent, &second.append());
  first.append();
  ASSERT_EQ(2u, parent.payload->dfis.size());
  EXPECT_EQ("B", parent.payload->dfis[0]->name);
  EXPECT_EQ(first.request(), parent.payload->dfis[1]);
  EXPECT_EQ("3.0", parent.payload->dfis[1]->payloadVersion);
}

// clang-format on
}  // namespace
}  // namespace ornwick::ornConnector::api
