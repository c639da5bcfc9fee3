#include "Console.h"

#include <cstdio>
#include <thread>

#include "Failure.h"
#include "KernelDrops.h"
#include "hub/Doors.h"
#include "hub/Metrics.h"
#include "hub/Site.h"
#include "web/Listen.h"
#include "web/Login.h"
#include "web/Server.h"

namespace kolvex_console {

using kolvex_host::ExitCode;
using kolvex_host::Failure;
using std::chrono::milliseconds;

namespace {

constexpr const char* kUsualPlace = "127.0.0.1:8088";
constexpr milliseconds kTick{200};

std::vector<Listening> OpenAll(const std::vector<std::string>& places) {
  std::vector<Listening> sockets = TakeHandedOver();
  for (const std::string& place : places) {
    sockets.push_back(OpenListening(place));
  }
  if (sockets.empty()) {
    sockets.push_back(OpenListening(kUsualPlace));
  }
  return sockets;
}

/// Whoever can reach an address of the network could look and steer.
void RefuseWithoutLogin(const std::vector<Listening>& sockets, bool hasLogin) {
  for (const Listening& socket : sockets) {
    if (!socket.isLoopback && !hasLogin) {
      throw Failure(ExitCode::Usage, "Others can reach " + socket.url +
                                         ", so the console wants a login there: make one with "
                                         "kolvex-host serve --set-password.");
    }
  }
}

}  // namespace

std::filesystem::path LoginPath(const ConsoleOptions& options) {
  return options.login.empty() && !options.folder.empty() ? options.folder / "login" : options.login;
}

void RunConsole(std::shared_ptr<kolvex_host::Library> library, const ConsoleOptions& options,
                kolvex_host::StopSignal& stop,
                const std::function<void(const std::vector<std::string>& urls)>& ready) {
  ServerOptions serverOptions;
  serverOptions.names = options.names;
  const std::filesystem::path login = LoginPath(options);
  if (!options.login.empty() || (!login.empty() && std::filesystem::exists(login))) {
    serverOptions.login = LoginFile::Read(login);
  }
  const std::vector<Listening> sockets = OpenAll(options.listen);
  RefuseWithoutLogin(sockets, serverOptions.login.has_value());

  // The server outlives all that may answer through it.
  std::unique_ptr<DoorTable> doors;
  Server server(sockets, std::move(serverOptions),
                [&](const Request& request, const Respond& respond) { doors->Open(request, respond); });
  const auto site = std::make_shared<Site>([&server] { server.Wake(); });
  const auto store =
      options.folder.empty() ? std::make_shared<Store>() : std::make_shared<Store>(options.folder);
  const auto keeper = std::make_shared<LiveKeeper>(
      LiveKeeper::Surroundings{std::move(library), site, store, options.simulator});
  kolvex_host::KernelDrops drops;
  doors = std::make_unique<DoorTable>(
      site, DoorTable::Outside{keeper, [&] { return MetricsText(*site, server.Streams(), drops.Total()); }});

  std::vector<std::string> skipped;
  std::vector<KnownCamera> cameras = store->Load(skipped);
  cameras.insert(cameras.end(), options.cameras.begin(), options.cameras.end());
  for (const KnownCamera& camera : cameras) {
    try {
      keeper->Start(camera);
    } catch (const Failure& failure) {
      skipped.emplace_back(failure.what());  // the others go on
    }
  }
  for (const std::string& sentence : skipped) {
    std::fprintf(stderr, "kolvex-host: %s\n", sentence.c_str());
    site->Log("", sentence);
  }

  std::thread thread([&] {
    auto second = std::chrono::steady_clock::now();
    server.Run([&] {
      doors->Tick();
      if (const auto now = std::chrono::steady_clock::now(); now >= second) {
        second = std::max(second + std::chrono::seconds(1), now);
        keeper->Second();
        drops.Look();
      }
    });
  });
  std::vector<std::string> urls;
  for (const Listening& socket : sockets) {
    urls.push_back(socket.url);
  }
  ready(urls);
  while (!stop.Wait(kTick)) {
  }
  server.Stop();
  thread.join();
  doors.reset();
}

}  // namespace kolvex_console
