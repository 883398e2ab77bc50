// SPDX-License-Identifier: Apache-2.0
// ornsim: a stand-in for the device-control service, for trying orncli without
// hardware.
#include <signal.h>

#include <asio.hpp>
#include <cstdio>
#include <cstdlib>

#include "Diagnostics.h"
#include "Home.h"
#include "Options.h"
#include "Server.h"
#include "Socket.h"
#ifdef ORN_LIVE_VIEW
#include "LiveView.h"
#endif

namespace {

int run(int argc, char** argv) {
  ornsim::Options options;
  std::string err;
  if (!ornsim::parseOptions(argc, argv, &options, &err)) {
    fprintf(stderr, "ornsim: %s (try --help)\n", err.c_str());
    return 2;
  }
  if (options.help) {
    fputs(ornsim::usageText(), stdout);
    return 0;
  }
  if (options.version) {
    printf("ornsim %s\n", ORNSIM_VERSION);
    return 0;
  }
  ornsim::Home home = ornsim::builtinHome();
  if (!options.homeFile.empty()) {
    std::vector<std::string> problems;
    if (!ornsim::loadHome(options.homeFile, &home, &problems)) {
      for (const auto& p : problems)
        fprintf(stderr, "ornsim: %s: %s\n", options.homeFile.c_str(), p.c_str());
      return 2;
    }
  }
  // A client that vanishes mid-write, or a closed stdout, must not end the
  // service.
  signal(SIGPIPE, SIG_IGN);

#ifndef ORN_LIVE_VIEW
  if (options.httpPort >= 0) {
    fprintf(stderr, "ornsim: --http: this ornsim was built without the live view\n");
    return 2;
  }
#endif
  asio::io_context io;
  const ornsim::DiagnosticsOnLoop diagnostics(io);
  ornsim::Server server(io, options, std::move(home));
  const char* named = std::getenv("ORN_QIPC_SOCKET");
  const std::string path = !options.socketPath.empty()          ? options.socketPath
                           : named != nullptr && *named != '\0' ? named
                                                                : ornwick::qipc::ownSocketPath();
  if (path == ornwick::qipc::ownSocketPath() && !ornwick::qipc::makeDefaultSocketDir(&err)) {
    fprintf(stderr, "ornsim: %s\n", err.c_str());
    return 2;
  }
  if (!server.start(path, &err)) {
    fprintf(stderr, "ornsim: %s\n", err.c_str());
    return 2;
  }
#ifdef ORN_LIVE_VIEW
  ornsim::LiveView view(io, server);
  if (options.httpPort >= 0 && !view.start(options.httpAddress, options.httpPort, &err)) {
    fprintf(stderr, "ornsim: %s\n", err.c_str());
    return 2;
  }
#endif
  asio::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&](const asio::error_code&, int) {
    // A second signal during teardown (a supervisor's follow-up SIGTERM) must
    // not turn a clean exit into death by signal once the handlers are gone;
    // keep them pending instead.
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGINT);
    sigaddset(&stopping, SIGTERM);
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
#ifdef ORN_LIVE_VIEW
    view.stop();
#endif
    server.shutdown();
    io.stop();
  });
  printf("ready %s\n", path.c_str());
#ifdef ORN_LIVE_VIEW
  if (options.httpPort >= 0)
    printf("http %s\n", view.url().c_str());
#endif
  fflush(stdout);
  io.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Asio reports resource exhaustion (no descriptors, no memory) by throwing.
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    fprintf(stderr, "ornsim: %s\n", e.what());
    return 2;
  }
}
