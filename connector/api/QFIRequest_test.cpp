#include "QFIRequest.h"

#include <gtest/gtest.h>

namespace ornwick::ornConnector::api {
namespace {

TEST(QFIRequest, JsonText) {
  // clang-format off
  static const struct { const char* path; int method; const char* body; const char* want; } kCases[] = {
      {"/v2/endpoints/id1/features/power/", 1, "", R"({"path":"/v2/endpoints/id1/features/power/","method":"GET"})"},
      {"/p", 0, "", R"({"path":"/p","method":"UNKNOWN"})"},
      {"/p", 3, "", R"({"path":"/p","method":"UNKNOWN"})"},
      {"/p", 1, " [ 1 , 2.0 ] ", R"({"path":"/p","method":"GET","requestBody":[1,2.0]})"},
      {"/p", 1, R"("text")", R"({"path":"/p","method":"GET","requestBody":"text"})"},
      {"/p", 2, "{bad", ""}, {"/p", 2, "{} {}", ""}, {"/p", 2, " ", ""},
      {"/q\"", 1, "", R"({"path":"/q\"","method":"GET"})"},
      // clang-format on
  };
  for (const auto& c : kCases) {
    QFIRequest r;
    r.path = c.path;
    r.method = static_cast<QFIRequest::Method>(c.method);
    r.requestBody = c.body;
    EXPECT_EQ(c.want, r.toJsonString()) << c.path << " " << c.method << " " << c.body;
  }
}

}  // namespace
}  // namespace ornwick::ornConnector::api
