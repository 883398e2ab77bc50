// SPDX-License-Identifier: Apache-2.0
// StateFile: writing, reading and replacing the saved state.
#include "StateFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "BoundedParse.h"
#include "Directives.h"
#include "RequestHandlerInternal.h"
#include "RequestInfo.h"

namespace ornsim {
namespace {

using rapidjson::SizeType;
using rapidjson::Value;

bool parse(const std::string& text, rapidjson::Document* doc, std::string* err) {
  const rapidjson::ParseResult parsed =
      zedLocalUtil::jsonUtil::boundedParse(doc, text.data(), text.size());
  if (parsed.IsError()) {
    *err = std::string("not valid JSON: ") + zedLocalUtil::jsonUtil::parseErrorText(parsed.Code()) +
           " at offset " + std::to_string(parsed.Offset());
    return false;
  }
  return true;
}

const Value* arrayMember(const Value& obj, const char* key, std::vector<std::string>* problems) {
  const Value* v = findMember(obj, key);
  if (v != nullptr && !v->IsArray()) {
    problems->push_back(std::string("\"") + key + "\" must be an array");
    return nullptr;
  }
  return v;
}

void readDevice(const Value& v, const std::string& where, Home* home,
                std::vector<std::string>* problems, std::vector<std::string>* kept) {
  std::string id;
  if (!getString(v, "id", &id)) {
    problems->push_back(where + ": needs a string \"id\"");
    return;
  }
  if (!cleanText(id)) {
    problems->push_back(where + ": \"id\" must be UTF-8 text without control characters");
    return;
  }
  Device* d = home->findDevice(id);
  if (d == nullptr) {
    if (kept != nullptr) {
      rapidjson::StringBuffer buf;
      JsonWriter w(buf);
      v.Accept(w);
      kept->push_back(buf.GetString());
    }
    return;
  }
  if (const Value* r = findMember(v, "reachable")) {
    if (r->IsBool())
      d->reachable = r->GetBool();
    else
      problems->push_back(where + ": \"reachable\" must be true or false");
  }
  if (const Value* s = findMember(v, "state"))
    parseDeviceState(*s, where + ".state", &d->state, problems);
}

void readClient(const Value& v, const std::string& where, Subscriptions* subs,
                std::vector<std::string>* problems) {
  std::string client;
  const Value* list = findMember(v, "subscriptions");
  if (!getString(v, "client", &client) || list == nullptr || !list->IsArray()) {
    problems->push_back(where + ": needs a string \"client\" and an array \"subscriptions\"");
    return;
  }
  if (!cleanText(client)) {
    problems->push_back(where + ": \"client\" must be UTF-8 text without control characters");
    return;
  }
  std::vector<Subscription> saved;
  for (SizeType i = 0; i < list->Size(); ++i) {
    Subscription s;
    std::string err;
    if (!getString((*list)[i], "subscriptionId", &s.id))
      err = "needs a string \"subscriptionId\"";
    if (err.empty() && readSubscription((*list)[i], &s, &err))
      saved.push_back(std::move(s));
    else
      problems->push_back(where + ".subscriptions[" + std::to_string(i) + "]: " + err);
  }
  // The limits that hold for creating hold for restoring: repeats collapse into
  // the first, and more than a client may hold is an error, not a silent cut.
  if (!roomForClient(*subs, client, saved)) {
    problems->push_back(where + ": too many clients: " + tooManyClients(*subs));
    return;
  }
  if (!roomFor(*subs, client, saved)) {
    problems->push_back(where + ": too many subscriptions for \"" + client +
                        "\": " + tooManySubscriptions(*subs));
    return;
  }
  for (auto& s : saved)
    subs->restore(client, std::move(s));
}

void writeDeviceState(JsonWriter& w, const Device& d) {
  w.StartObject();
  writeMember(w, "id", d.id);
  w.Key("reachable");
  w.Bool(d.reachable);
  w.Key("state");
  w.StartObject();
  w.Key("power");
  w.Bool(d.state.power);
  w.Key("brightness");
  w.Int(d.state.brightness);
  w.Key("color");
  writeColor(w, d.state.color);
  // Devices without colour temperature hold 0, which a home file may not say.
  if (d.state.colorTemperatureInKelvin != 0) {
    w.Key("colorTemperatureInKelvin");
    w.Int(d.state.colorTemperatureInKelvin);
  }
  w.EndObject();
  w.EndObject();
}

}  // namespace

void writeClients(JsonWriter& w, const Subscriptions& subs) {
  w.Key("clients");
  w.StartArray();
  for (const auto& [client, list] : subs.all()) {
    if (list.empty())
      continue;
    w.StartObject();
    writeMember(w, "client", client);
    w.Key("subscriptions");
    w.StartArray();
    for (const auto& s : list)
      writeSubscription(w, s);
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
}

std::string stateText(const Home& home, const Subscriptions& subs,
                      const std::vector<std::string>& kept) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("devices");
  w.StartArray();
  for (const auto& d : home.devices)
    writeDeviceState(w, d);
  for (const auto& entry : kept) {
    // A device added since (through /sim/) now speaks for itself.
    rapidjson::Document doc;
    std::string id;
    if (!doc.Parse(entry.data(), entry.size()).HasParseError() && getString(doc, "id", &id) &&
        home.findDevice(id) != nullptr)
      continue;
    w.RawValue(entry.data(), entry.size(), rapidjson::kObjectType);
  }
  w.EndArray();
  writeClients(w, subs);
  w.EndObject();
  return std::string(buf.GetString()) + "\n";
}

bool applyState(const std::string& text, Home* home, Subscriptions* subs,
                std::vector<std::string>* problems, std::vector<std::string>* kept) {
  rapidjson::Document doc;
  std::string err;
  if (!parse(text, &doc, &err)) {
    problems->push_back(err);
    return false;
  }
  if (!doc.IsObject()) {
    problems->push_back("the top level must be an object");
    return false;
  }
  const size_t before = problems->size();
  Home h = *home;
  Subscriptions s(subs->maxPerClient(), subs->maxClients());
  if (const Value* devices = arrayMember(doc, "devices", problems))
    for (SizeType i = 0; i < devices->Size(); ++i)
      readDevice((*devices)[i], "devices[" + std::to_string(i) + "]", &h, problems, kept);
  if (const Value* clients = arrayMember(doc, "clients", problems))
    for (SizeType i = 0; i < clients->Size(); ++i)
      readClient((*clients)[i], "clients[" + std::to_string(i) + "]", &s, problems);
  if (problems->size() != before)
    return false;
  *home = std::move(h);
  *subs = std::move(s);
  return true;
}

int lockStateFile(const std::string& path, std::string* err) {
  const std::string lockPath = path + ".lock";
  const int fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) {
    *err = "open " + lockPath + ": " + strerror(errno);
    return -1;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int e = errno;
    close(fd);
    *err = e == EWOULDBLOCK ? "another ornsim keeps its state in " + path + ": it holds " + lockPath
                            : "lock " + lockPath + ": " + strerror(e);
    return -1;
  }
  return fd;
}

bool readStateFile(const std::string& path, std::string* text, bool* missing, std::string* err) {
  // Non-blocking, so that a FIFO cannot hold the start; then only a regular
  // file is read, so that /dev/zero cannot fill memory.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  *missing = fd < 0 && errno == ENOENT;
  if (fd < 0) {
    *err = errno == ELOOP ? path + ": is a symbolic link; name the state file itself"
                          : "open " + path + ": " + strerror(errno);
    return false;
  }
  struct stat st;
  bool ok = fstat(fd, &st) == 0;
  if (ok && !S_ISREG(st.st_mode)) {
    const char* what = S_ISDIR(st.st_mode)    ? "a directory"
                       : S_ISFIFO(st.st_mode) ? "a FIFO"
                       : S_ISCHR(st.st_mode)  ? "a character device"
                       : S_ISBLK(st.st_mode)  ? "a block device"
                       : S_ISSOCK(st.st_mode) ? "a socket"
                                              : "not a regular file";
    close(fd);
    *err = path + ": is " + std::string(what) + ", not a regular file";
    return false;
  }
  char buf[65536];
  ssize_t n = 0;
  while (ok && (n = read(fd, buf, sizeof buf)) != 0) {
    if (n < 0 && errno == EINTR)
      continue;
    ok = n > 0;
    if (ok)
      text->append(buf, static_cast<size_t>(n));
  }
  if (!ok)
    *err = "read " + path + ": " + strerror(errno);
  close(fd);
  return ok;
}

namespace {

bool writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// The rename is only lasting once the folder holding both names is synced.
void syncFolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "."
                             : slash == 0               ? "/"
                                                        : path.substr(0, slash);
  const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
}

}  // namespace

bool writeAtomically(const std::string& path, const std::string& text, std::string* err) {
  const std::string temp = path + ".tmp";
  // Left by a crash; whatever is there (another user's link included) is
  // replaced, never written through. unlink() removes a link, not its target.
  unlink(temp.c_str());
  const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) {
    *err = "create " + temp + ": " + strerror(errno);
    return false;
  }
  bool ok = writeAll(fd, text) && fsync(fd) == 0;
  int error = errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    error = errno;
  }
  if (!ok) {
    *err = "write " + temp + ": " + strerror(error);
    unlink(temp.c_str());
    return false;
  }
  if (rename(temp.c_str(), path.c_str()) != 0) {
    *err = "rename " + temp + " to " + path + ": " + strerror(errno);
    unlink(temp.c_str());
    return false;
  }
  syncFolderOf(path);
  return true;
}

}  // namespace ornsim
