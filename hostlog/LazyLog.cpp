// SPDX-License-Identifier: Apache-2.0
// The Android log library's entry point, bound on first use. A successful run
// logs nothing, and loading the library at every start (its search, mapping
// and eager relocations) costs a one-shot run several percent of its time. On
// Android the platform's library is in every process already and is linked
// directly; this file is built on other hosts only.
#include <android/log.h>
#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>

namespace {

using VPrint = int (*)(int, const char*, const char*, va_list);

VPrint loadVPrint() {
  // RTLD_LOCAL and a lookup in that handle alone: the library's own symbol,
  // never this one.
  void* lib = dlopen(ORN_LIBLOG_PATH, RTLD_NOW | RTLD_LOCAL);
  return lib != nullptr ? reinterpret_cast<VPrint>(dlsym(lib, "__android_log_vprint")) : nullptr;
}

}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  static const VPrint vprint = loadVPrint();
  va_list args;
  va_start(args, fmt);
  int n;
  if (vprint != nullptr) {
    n = vprint(prio, tag, fmt, args);
  } else {
    // The library went missing after the build: the record still reaches
    // stderr rather than nowhere.
    n = fprintf(stderr, "%s: ", tag != nullptr ? tag : "");
    n += vfprintf(stderr, fmt, args);
    n += fputc('\n', stderr) == EOF ? 0 : 1;
  }
  va_end(args);
  return n;
}
