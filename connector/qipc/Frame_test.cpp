// SPDX-License-Identifier: Apache-2.0
#include "Frame.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace ornwick::qipc {
namespace {

using Frames = std::vector<std::string>;

std::string header(uint32_t n) {
  return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
          static_cast<char>(n)};
}

// Feeds stream in pieces of chunk bytes and collects every frame, and "<error>" at the first
// error, where it stops.
Frames decodeAll(const std::string& stream, size_t chunk) {
  FrameDecoder d;
  Frames frames;
  std::string body, err;
  for (size_t at = 0; at < stream.size(); at += chunk) {
    d.feed(stream.data() + at, std::min(chunk, stream.size() - at));
    for (auto s = d.next(&body, &err); s != FrameDecoder::Status::kNeedMore;
         s = d.next(&body, &err)) {
      if (s == FrameDecoder::Status::kError) {
        frames.push_back("<error>");
        return frames;
      }
      frames.push_back(body);
    }
  }
  return frames;
}

TEST(Frame, EncodeRejectsOnlyBodiesOverTheLimit) {
  std::string out = "untouched";
  EXPECT_FALSE(encodeFrame(std::string(kMaxFrameSize + 1, 'x'), &out));
  EXPECT_EQ(out, "untouched");
  ASSERT_TRUE(encodeFrame(std::string(kMaxFrameSize, 'x'), &out));
  EXPECT_EQ(out.substr(0, 4), header(kMaxFrameSize));
  ASSERT_TRUE(encodeFrame("{}", &out));
  EXPECT_EQ(out, header(2) + "{}");
}

// The figure docs/qipc-protocol.md gives ("above 1 MiB (1048576)") is the limit both ends apply.
TEST(Frame, DocsGiveTheLimit) {
  std::ifstream in(ORN_SOURCE_DIR "/docs/qipc-protocol.md");
  ASSERT_TRUE(in) << "docs/qipc-protocol.md";
  std::stringstream text;
  text << in.rdbuf();
  std::smatch m;
  const std::string doc = text.str();
  ASSERT_TRUE(std::regex_search(doc, m, std::regex(R"(A length of 0, or above [^(]*\((\d+)\))")));
  EXPECT_EQ(m[1].str(), std::to_string(kMaxFrameSize));
}

TEST(Frame, DecoderFindsFramesWhateverTheReadSizes) {
  const Frames want = {"{\"a\":1}", "x", std::string(70000, 'y'), "{\"a\":1}"};
  std::string stream, frame;
  for (const std::string& body : want) {
    ASSERT_TRUE(encodeFrame(body, &frame));
    stream += frame;
  }
  for (size_t chunk : {size_t{1}, size_t{2}, size_t{3}, size_t{5}, size_t{4096}, stream.size()})
    EXPECT_TRUE(decodeAll(stream, chunk) == want) << chunk;
}

TEST(Frame, DecoderRejectsBadLengthsAndStaysFailed) {
  static const struct {
    std::string stream;
    Frames want;
  } kCases[] = {
      {header(0), {"<error>"}},
      {header(kMaxFrameSize + 1) + "x", {"<error>"}},
      {header(0xffffffffu), {"<error>"}},
      {"GET / HTTP/1.1\r\n\r\n", {"<error>"}},
      {header(1) + "a" + header(0) + header(1) + "b", {"a", "<error>"}},
      {std::string("\0\0", 2), {}},       // truncated header
      {header(10) + "abc", {}},           // truncated body
      {header(kMaxFrameSize) + "x", {}},  // the largest frame, truncated
  };
  for (const auto& c : kCases)
    EXPECT_EQ(decodeAll(c.stream, 1), c.want) << c.stream.substr(0, 20);
  FrameDecoder d;
  const std::string bad = header(0) + header(1) + "a";
  d.feed(bad.data(), bad.size());
  std::string body, err;
  EXPECT_EQ(d.next(&body, &err), FrameDecoder::Status::kError);
  EXPECT_FALSE(err.empty());
  EXPECT_EQ(d.next(&body, &err), FrameDecoder::Status::kError);
}

}  // namespace
}  // namespace ornwick::qipc
