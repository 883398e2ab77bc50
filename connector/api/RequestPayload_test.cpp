#include "RequestPayload.h"

#include <gtest/gtest.h>

#include <tuple>

#include "ORNRequestBuilder.h"

namespace ornwick::ornConnector::api {
namespace {
// clang-format off

std::shared_ptr<QFIRequest> qfi(const char* path, const char* body = "") {
  auto r = std::make_shared<QFIRequest>();
  r->path = path;
  r->method = QFIRequest::GET;
  r->requestBody = body;
  return r;
}

std::shared_ptr<DFIRequest> dfi(const char* name, const char* payload = "") {
  auto r = std::make_shared<DFIRequest>();
  r->name = name;
  r->payload = payload;
  return r;
}

constexpr char kDfiA[] = R"({"header":{"namespace":"","name":"A","payloadVersion":""},)"
                         R"("endpoint":{"entityId":"","endpointId":"","friendlyName":""}})";
constexpr char kDfiB[] =
    R"({"header":{"namespace":"","name":"B","payloadVersion":""},)"
    R"("endpoint":{"entityId":"","endpointId":"","friendlyName":""},"payload":[]})";

// Single-part payloads are pinned by the one-shot end-to-end cases.
TEST(RequestPayload, JsonText) {
  static const struct { const char* name; std::shared_ptr<QFIRequest> qfi; std::vector<std::shared_ptr<DFIRequest>> dfis; std::string want; } kCases[] = {
      {"nothing", nullptr, {}, ""},
      {"qfi first, dfis in order", qfi("/p"), {dfi("B", "[]"), dfi("A")}, std::string(R"({"qfi":{"path":"/p","method":"GET"},"dfi":[)") + kDfiB + "," + kDfiA + "]}"},
      {"unparseable dfi is null", nullptr, {dfi("A"), dfi("X", "{bad"), nullptr}, std::string(R"({"dfi":[)") + kDfiA + ",null,null]}"},
      {"unparseable qfi is null", qfi("/p", "nope"), {}, R"({"qfi":null,"dfi":[]})"},
  };
  for (const auto& c : kCases) {
    RequestPayload p;
    p.qfi = c.qfi;
    p.dfis = c.dfis;
    EXPECT_EQ(c.want, p.toJsonString()) << c.name;
  }
}

TEST(ORNRequestBuilder, Build) {
  static const struct { const char* name; int32_t type; bool withQfi; const char* raw; const char* want; } kCases[] = {
      {"type 1 with nothing", 1, false, "ignored", ""},
      {"type 0 still uses the payload", 0, true, "ignored", R"({"qfi":{"path":"/b","method":"POST","requestBody":{"x":1}},"dfi":[]})"},
      {"type 3 uses the payload", 3, true, "", R"({"qfi":{"path":"/b","method":"POST","requestBody":{"x":1}},"dfi":[]})"},
      {"type 2 is raw verbatim", 2, true, " {not json ", " {not json "},
      {"type 2 with empty raw", 2, true, "", ""},
  };
  for (const auto& c : kCases) {
    ORNRequestBuilder b;
    b.requestId = "rid";
    b.requestType = c.type;
    b.requestOption = 4;
    b.rawPayload = c.raw;
    if (c.withQfi) {
      // Only the last addQfi counts.
      b.addQfi("/a", QFIRequest::GET, "").addQfi("/b", QFIRequest::POST, R"({"x":1})");
    }
    auto r = b.build();
    EXPECT_EQ(
        std::tie(r->requestId, r->requestType, r->requestOption, r->requestContext, r->payload),
        std::make_tuple("rid", c.type, 4, "", c.want))
        << c.name;
  }
}

// clang-format on
}  // namespace
}  // namespace ornwick::ornConnector::api
