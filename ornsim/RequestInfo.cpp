// SPDX-License-Identifier: Apache-2.0
// RequestInfo: a streaming read of the few members that say what a request is
// about; no document is built, so any payload costs one pass and little memory.
#include "RequestInfo.h"

#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "QipcProtocol.h"

namespace ornsim {
namespace {

using rapidjson::SizeType;

struct Directive {
  std::string nameSpace, name, endpointId, entityId;
};

// Collects members by their place in the document, written ".qfi.path",
// ".dfi[].header.name" and so on.
class Collector : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Collector> {
 public:
  std::string qfiPath, qfiMethod, operation;
  bool hasQfi = false;
  std::vector<Directive> dfis;
  std::vector<std::string> endpoints, entries, groups;
  bool groupBatch = false;

  bool Default() { return true; }
  bool String(const char* s, SizeType n, bool) {
    const std::string at = here();
    const std::string v(s, n);
    if (at == ".qfi.path")
      qfiPath = v;
    else if (at == ".qfi.method")
      qfiMethod = v;
    else if (at == ".operation")
      operation = v;
    else if (at == ".qfi.requestBody.batch[].endpointId")
      entries.push_back(v);
    else if (at == ".subscriptions[].entities.endpoint.id")
      endpoints.push_back(v);
    else if (at == ".qfi.requestBody.groupId") {
      groupBatch = true;
      groups.push_back(v);
    } else if (at == ".subscriptions[].entities.endpointGroup.id")
      groups.push_back(v);
    else if (!dfis.empty() && at == ".dfi[].header.namespace")
      dfis.back().nameSpace = v;
    else if (!dfis.empty() && at == ".dfi[].header.name")
      dfis.back().name = v;
    else if (!dfis.empty() && at == ".dfi[].endpoint.endpointId")
      dfis.back().endpointId = v;
    else if (!dfis.empty() && at == ".dfi[].endpoint.entityId")
      dfis.back().entityId = v;
    return true;
  }
  bool Key(const char* s, SizeType n, bool) {
    key_.assign(s, n);
    return true;
  }
  bool StartObject() { return open(false); }
  bool EndObject(SizeType) { return close(); }
  bool StartArray() { return open(true); }
  bool EndArray(SizeType) { return close(); }

 private:
  struct Frame {
    size_t outerLength;  // path_ length outside this container
    bool array;
  };

  // The place of the value being read.
  std::string here() const {
    if (frames_.empty())
      return "";
    return frames_.back().array ? path_ + "[]" : path_ + "." + key_;
  }
  bool open(bool array) {
    if (frames_.size() >= static_cast<size_t>(kMaxJsonDepth))
      return false;
    const std::string at = here();
    frames_.push_back({path_.size(), array});
    path_ = at;
    if (at == ".qfi")
      hasQfi = true;
    else if (at == ".dfi[]")
      dfis.emplace_back();
    return true;
  }
  bool close() {
    path_.resize(frames_.back().outerLength);
    frames_.pop_back();
    return true;
  }

  std::vector<Frame> frames_;
  std::string path_;
  std::string key_;
};

// REQUIRES: path is normal (see normalPath).
bool isControlPath(const std::string& path) {
  return path.compare(0, 4, "/sim") == 0 && (path.size() == 4 || path[4] == '/');
}

std::string join(const std::vector<std::string>& parts, const char* separator) {
  std::string s;
  for (const auto& p : parts)
    s += (s.empty() ? "" : separator) + p;
  return s;
}

}  // namespace

std::string normalPath(const std::string& path) {
  // The service reads "v2/endpoints" as "/v2/endpoints".
  std::string p = (path.empty() || path[0] != '/' ? "/" : "") + path.substr(0, path.find('?'));
  if (p.size() > 1 && p.back() == '/')
    p.pop_back();
  return p;
}

RequestInfo describeRequest(int requestType, const std::string& payload) {
  RequestInfo info;
  Collector c;
  rapidjson::MemoryStream bytes(payload.data(), payload.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> in(bytes);
  rapidjson::Reader reader;
  if (reader.Parse<rapidjson::kParseIterativeFlag>(in, c).IsError()) {
    info.what = "invalid JSON";
    return info;
  }
  info.endpoints = c.endpoints;
  info.entries = c.entries;
  info.groups = c.groups;
  info.groupBatch = c.groupBatch;
  if (requestType == ornwick::qipc::kSubscriptionRequest) {
    std::vector<std::string> targets = c.endpoints;
    targets.insert(targets.end(), c.groups.begin(), c.groups.end());
    info.what = "subscribe " + c.operation + (targets.empty() ? "" : " " + join(targets, ","));
    return info;
  }
  std::vector<std::string> parts;
  if (c.hasQfi) {
    parts.push_back(c.qfiMethod + " " + c.qfiPath);
    info.paths.push_back(normalPath(c.qfiPath));
    const std::string& path = info.paths.back();
    info.control = isControlPath(path);
    // "/v2/endpoints/{id}/features/{feature}" names a device too.
    const std::string prefix = "/v2/endpoints/";
    if (path.compare(0, prefix.size(), prefix) == 0) {
      const size_t end = path.find('/', prefix.size());
      const std::string id =
          path.substr(prefix.size(), end == std::string::npos ? end : end - prefix.size());
      if (id != "batch")
        info.endpoints.push_back(id);
    }
  }
  for (const auto& d : c.dfis) {
    const std::string& id = d.endpointId.empty() ? d.entityId : d.endpointId;
    parts.push_back(d.nameSpace + "." + d.name + " " + id);
    for (const std::string* named : {&d.endpointId, &d.entityId})
      if (!named->empty())
        info.endpoints.push_back(*named);
  }
  info.what = parts.empty() ? "no operation" : join(parts, "; ");
  return info;
}

}  // namespace ornsim
