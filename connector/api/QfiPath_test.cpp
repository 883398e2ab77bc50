#include "QfiPath.h"

#include <gtest/gtest.h>

namespace ornwick::ornConnector::api {
namespace {

QfiPath storedPath(const char* text, int32_t kind = QfiPath::kWhole) {
  QfiPath p = QfiPath::endpointFeature("id1", "power");
  p.kind = kind;
  p.path = text;
  return p;
}

TEST(QfiPath, RendersEachKind) {
  static const struct { QfiPath path; const char* want; } kCases[] = {
      {QfiPath::batchDirective("power", "turnOn"), "/v2/endpoints/batch/interfaces/power/turnOn/"},
      {QfiPath::batchDirective("power", ""), "/v2/endpoints/batch/interfaces/power/"},
      {QfiPath::endpointFeature("id1", "power"), "/v2/endpoints/id1/features/power/"},
      {QfiPath::endpointFeature("a b/c", ""), "/v2/endpoints/a b/c/features//"},
      {QfiPath::endpointQuery({}), "/v2/endpoints"},
      {storedPath("v2/no/leading/slash"), "v2/no/leading/slash"},
      {storedPath("/custom", 7), "/custom"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.want, c.path.toString()) << c.want;
    if (c.path.kind >= QfiPath::kBatchDirective && c.path.kind <= QfiPath::kEndpointQuery) {
      EXPECT_EQ(c.want, c.path.path) << "factory stores the rendered path: " << c.want;
    }
  }
}

TEST(QfiPath, SeveralQueryParamsJoinedByAmpersand) {
  std::string got = QfiPath::endpointQuery({{"a", "1"}, {"b", "2"}}).toString();
  EXPECT_TRUE(got == "/v2/endpoints?a=1&b=2" || got == "/v2/endpoints?b=2&a=1") << got;
}

}  // namespace
}  // namespace ornwick::ornConnector::api
