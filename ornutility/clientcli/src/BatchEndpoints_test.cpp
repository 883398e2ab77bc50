#include "BatchEndpoints.h"

#include <gtest/gtest.h>

#include "ORNRequestBuilder.h"
#include "QfiPath.h"
#include "Serialize.h"

namespace ornwick {
namespace ornUtility {
namespace {

using zedLocalUtil::jsonUtil::JsonDocBuilder;
using zedLocalUtil::jsonUtil::JsonValueBuilder;
using zedLocalUtil::jsonUtil::serialize;

// Fills a directive payload as the batch directives do.
using PayloadFill = void (*)(JsonValueBuilder&);

TEST(BatchEndpoints, DirectiveBodies) {
  static const struct {
    std::vector<std::string> ids;
    PayloadFill fill;
    const char* want;
  } kCases[] = {
      {{"e1", "e2"},
       [](JsonValueBuilder&) {},
       R"({"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{}})"},
      {{}, [](JsonValueBuilder&) {}, R"({"batch":[],"directivePayload":{}})"},
      {{"b", "a", "b"},
       [](JsonValueBuilder& p) { p.set("brightnessDelta", -10); },
       R"({"batch":[{"endpointId":"b"},{"endpointId":"a"},{"endpointId":"b"}],"directivePayload":{"brightnessDelta":-10}})"},
      {{"e1", "e2"},
       [](JsonValueBuilder& p) { p.set("brightness", 40); },
       R"({"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{"brightness":40}})"},
      {{"id1", "id2"},
       [](JsonValueBuilder& p) {
         JsonValueBuilder color(p.allocator());
         color.set("hue", 120.0).set("saturation", 0.5).set("brightness", 0.8);
         p.set("color", color);
       },
       R"({"batch":[{"endpointId":"id1"},{"endpointId":"id2"}],"directivePayload":{"color":{"hue":120.0,"saturation":0.5,"brightness":0.8}}})"},
      {{"id1", "id2"},
       [](JsonValueBuilder& p) { p.set("colorTemperatureInKelvin", 3500); },
       R"({"batch":[{"endpointId":"id1"},{"endpointId":"id2"}],"directivePayload":{"colorTemperatureInKelvin":3500}})"},
      {{""},
       [](JsonValueBuilder&) {},
       R"({"batch":[{"endpointId":""}],"directivePayload":{}})"},
  };
  for (const auto& c : kCases) {
    JsonDocBuilder doc;
    buildBatchEndpoints(doc, c.ids);
    JsonValueBuilder payload(doc.allocator());
    c.fill(payload);
    doc.set("directivePayload", payload);
    EXPECT_EQ(c.want, serialize(doc.root())) << c.want;
  }
}

TEST(BatchEndpoints, PowerPayloadEndToEnd) {
  JsonDocBuilder doc;
  buildBatchEndpoints(doc, {"e1", "e2"});
  JsonValueBuilder payload(doc.allocator());
  doc.set("directivePayload", payload);

  ornConnector::api::ORNRequestBuilder b;
  b.requestType = 1;
  b.addQfi(
      ornConnector::api::QfiPath::batchDirective("power", "turnOn").toString(),
      ornConnector::api::QFIRequest::POST, serialize(doc.root()));
  EXPECT_EQ(
      R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST",)"
      R"("requestBody":{"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{}}},"dfi":[]})",
      b.build()->payload);
}

}  // namespace
}  // namespace ornUtility
}  // namespace ornwick
