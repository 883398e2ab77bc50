#include "DFIRequest.h"

#include <gtest/gtest.h>

#include "ORNRequestBuilder.h"

namespace ornwick {
namespace ornConnector {
namespace api {
namespace {

constexpr char kEmptyHeadAndEndpoint[] =
    R"({"header":{"namespace":"","name":"","payloadVersion":"3.0"},)"
    R"("endpoint":{"entityId":"","endpointId":"","friendlyName":""})";

TEST(DFIRequest, JsonText) {
  static const struct {
    const char* payload;
    std::string want;
  } kCases[] = {
      {"", std::string(kEmptyHeadAndEndpoint) + "}"},
      {"{}", std::string(kEmptyHeadAndEndpoint) + R"(,"payload":{}})"},
      {"[1,2]", std::string(kEmptyHeadAndEndpoint) + R"(,"payload":[1,2]})"},
      {"5", std::string(kEmptyHeadAndEndpoint) + R"(,"payload":5})"},
      {R"( {"a" : {"b":null}} )",
       std::string(kEmptyHeadAndEndpoint) + R"(,"payload":{"a":{"b":null}}})"},
      {"{bad", ""},
      {"{}x", ""},
  };
  for (const auto& c : kCases) {
    ORNRequestBuilder parent;
    DFIRequestBuilder b(&parent);
    b.request()->payload = c.payload;
    EXPECT_EQ(c.want, b.request()->toJsonString()) << c.payload;
  }
}

TEST(DFIRequest, FilledRequest) {
  DFIRequest r;
  r.nameSpace = "Corva.PowerController";
  r.name = "TurnOn";
  r.payloadVersion = "3.0";
  r.entityId = "eid1";
  r.endpointId = "epid1";
  r.payload = "{}";
  EXPECT_EQ(
      R"({"header":{"namespace":"Corva.PowerController","name":"TurnOn","payloadVersion":"3.0"},)"
      R"("endpoint":{"entityId":"eid1","endpointId":"epid1","friendlyName":""},"payload":{}})",
      r.toJsonString());

  r.nameSpace = "Corva";
  r.name = "ReportState";
  r.payloadVersion = "3";
  r.friendlyName = std::string("My Light\0hidden", 15);
  EXPECT_EQ(
      R"({"header":{"namespace":"Corva","name":"ReportState","payloadVersion":"3"},)"
      R"("endpoint":{"entityId":"eid1","endpointId":"epid1","friendlyName":"My Light"},"payload":{}})",
      r.toJsonString());
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

}  // namespace
}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
