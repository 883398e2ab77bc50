// SPDX-License-Identifier: Apache-2.0
// boundedParse: RapidJSON's parser for text from outside, with a bound on
// nesting. Text nested deeper than kMaxJsonDepth fails like any other
// unparseable text, so no tree we hold is ever deeper than the bound and
// neither parsing nor writing nor freeing it recurses further. Header only:
// the tool, the connector library and ornsim all include it.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cstddef>
#include <cstdint>

namespace zedLocalUtil {
namespace jsonUtil {

// The texts exchanged nest about ten levels. Parsing, writing and freeing a
// tree at the bound takes under 64 KiB of stack (debug and ASan builds; under
// 32 KiB optimised).
constexpr unsigned kMaxJsonDepth = 256;

namespace detail {

// Forwards SAX events to `out`, refusing to open a level past kMaxJsonDepth;
// the reader then stops with kParseErrorTermination before recursing deeper.
template <typename Handler>
class DepthBoundHandler {
 public:
  using Ch = typename Handler::Ch;
  explicit DepthBoundHandler(Handler& out) : out_(out) {}

  bool Null() { return out_.Null(); }
  bool Bool(bool b) { return out_.Bool(b); }
  bool Int(int i) { return out_.Int(i); }
  bool Uint(unsigned u) { return out_.Uint(u); }
  bool Int64(int64_t i) { return out_.Int64(i); }
  bool Uint64(uint64_t u) { return out_.Uint64(u); }
  bool Double(double d) { return out_.Double(d); }
  bool RawNumber(const Ch* s, rapidjson::SizeType n, bool copy) {
    return out_.RawNumber(s, n, copy);
  }
  bool String(const Ch* s, rapidjson::SizeType n, bool copy) { return out_.String(s, n, copy); }
  bool Key(const Ch* s, rapidjson::SizeType n, bool copy) { return out_.Key(s, n, copy); }
  bool StartObject() { return ++depth_ <= kMaxJsonDepth && out_.StartObject(); }
  bool EndObject(rapidjson::SizeType n) {
    --depth_;
    return out_.EndObject(n);
  }
  bool StartArray() { return ++depth_ <= kMaxJsonDepth && out_.StartArray(); }
  bool EndArray(rapidjson::SizeType n) {
    --depth_;
    return out_.EndArray(n);
  }

 private:
  Handler& out_;
  unsigned depth_ = 0;
};

template <typename Document, typename Stream>
rapidjson::ParseResult parseStream(Document* doc, Stream& in) {
  rapidjson::ParseResult result;
  auto generate = [&](Document& handler) {
    DepthBoundHandler<Document> bounded(handler);
    rapidjson::GenericReader<rapidjson::UTF8<>, typename Document::EncodingType> reader;
    result = reader.template Parse<rapidjson::kParseDefaultFlags>(in, bounded);
    return !result.IsError();
  };
  // Populate builds the tree on the document's own stack, as Parse does, and
  // frees the partial tree when the generator fails.
  doc->Populate(generate);
  if (result.IsError())
    doc->SetNull();
  return result;
}

}  // namespace detail

// Parses zero-terminated text as doc->Parse(text) does: up to the first NUL, a
// byte-order mark is an error. The result is the error, if any; on error *doc
// is null. doc->HasParseError() is not set: use the result.
template <typename Document>
rapidjson::ParseResult boundedParse(Document* doc, const char* text) {
  rapidjson::GenericStringStream<rapidjson::UTF8<>> in(text);
  return detail::parseStream(doc, in);
}

// Parses `length` bytes as doc->Parse(data, length) does: a leading byte-order
// mark is skipped. Result and *doc as above.
template <typename Document>
rapidjson::ParseResult boundedParse(Document* doc, const char* data, size_t length) {
  rapidjson::MemoryStream bytes(data, length);
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> in(bytes);
  return detail::parseStream(doc, in);
}

// RapidJSON's English message for the error, or the depth bound's.
inline const char* parseErrorText(rapidjson::ParseErrorCode code) {
  static_assert(kMaxJsonDepth == 256, "the message names the bound");
  // Our handler is the only one that stops the reader.
  if (code == rapidjson::kParseErrorTermination)
    return "Nesting deeper than 256 levels.";
  return rapidjson::GetParseError_En(code);
}

}  // namespace jsonUtil
}  // namespace zedLocalUtil
