#include "Frame.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ornwick::qipc {
namespace {

std::string header(uint32_t n) {
  return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
          static_cast<char>(n)};
}

// Feeds `stream` in pieces of `chunk` bytes and collects every frame until an
// error.
std::vector<std::string> decodeAll(const std::string& stream, size_t chunk, bool* failed) {
  FrameDecoder d;
  std::vector<std::string> frames;
  *failed = false;
  for (size_t at = 0; at < stream.size() && !*failed; at += chunk) {
    d.feed(stream.data() + at, std::min(chunk, stream.size() - at));
    std::string body, err;
    for (;;) {
      auto s = d.next(&body, &err);
      if (s == FrameDecoder::Status::kNeedMore)
        break;
      if (s == FrameDecoder::Status::kError) {
        *failed = true;
        break;
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

TEST(Frame, DecoderFindsFramesWhateverTheReadSizes) {
  std::string a, b, c;
  ASSERT_TRUE(encodeFrame("{\"a\":1}", &a));
  ASSERT_TRUE(encodeFrame("x", &b));
  ASSERT_TRUE(encodeFrame(std::string(70000, 'y'), &c));
  const std::string stream = a + b + c + a;
  for (size_t chunk : {size_t{1}, size_t{2}, size_t{3}, size_t{5}, size_t{4096}, stream.size()}) {
    bool failed;
    auto frames = decodeAll(stream, chunk, &failed);
    EXPECT_FALSE(failed) << chunk;
    ASSERT_EQ(frames.size(), 4u) << chunk;
    EXPECT_EQ(frames[0], "{\"a\":1}") << chunk;
    EXPECT_EQ(frames[1], "x") << chunk;
    EXPECT_EQ(frames[2].size(), 70000u) << chunk;
    EXPECT_EQ(frames[3], "{\"a\":1}") << chunk;
  }
}

TEST(Frame, DecoderRejectsBadLengthsAndStaysFailed) {
  static const struct {
    const char* name;
    std::string stream;
    size_t framesBefore;
    bool fails;
  } kCases[] = {
      {"zero length", header(0), 0, true},
      {"one over the limit", header(kMaxFrameSize + 1) + "x", 0, true},
      {"all ones", header(0xffffffffu), 0, true},
      {"garbage text", "GET / HTTP/1.1\r\n\r\n", 0, true},
      {"good then zero", header(1) + "a" + header(0) + header(1) + "b", 1, true},
      {"truncated header", std::string("\0\0", 2), 0, false},
      {"truncated body", header(10) + "abc", 0, false},
  };
  for (const auto& c : kCases) {
    bool failed;
    auto frames = decodeAll(c.stream, 1, &failed);
    EXPECT_EQ(failed, c.fails) << c.name;
    EXPECT_EQ(frames.size(), c.framesBefore) << c.name;
  }
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
