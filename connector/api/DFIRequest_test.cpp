#include "DFIRequest.h"

#include <gtest/gtest.h>

#include "ORNRequestBuilder.h"

namespace ornwick::ornConnector::api {
namespace {

constexpr char kEmptyHeadAndEndpoint[] =
    R"({"header":{"namespace":"","name":"","payloadVersion":"3.0"},)"
    R"("endpoint":{"entityId":"","endpointId":"","friendlyName":""})";

// No payload, "{}", "{bad" and the depth bound are pinned by the dfi end-to-end cases.
TEST(DFIRequest, JsonText) {
  static const struct { std::string payload; std::string want; } kCases[] = {
      {"[1,2]", std::string(kEmptyHeadAndEndpoint) + R"(,"payload":[1,2]})"},
      {"5", std::string(kEmptyHeadAndEndpoint) + R"(,"payload":5})"},
      {R"( {"a" : {"b":null}} )",
       std::string(kEmptyHeadAndEndpoint) + R"(,"payload":{"a":{"b":null}}})"},
      {"{}x", ""},
  };
  for (const auto& c : kCases) {
    ORNRequestBuilder parent;
    DFIRequestBuilder b(&parent);
    b.request()->payload = c.payload;
    EXPECT_EQ(c.want, b.request()->toJsonString()) << c.payload.substr(0, 80);
  }
}

// Filled requests are pinned by the dfi and state report end-to-end cases.
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
}  // namespace ornwick::ornConnector::api
