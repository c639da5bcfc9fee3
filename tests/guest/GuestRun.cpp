#include "GuestRun.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string_view>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kolvex/ICaptureIOApi.h"
#include "kolvex/IIPPTZDriver.h"
#include "support/RecordingCapabilities.h"

namespace kolvex_test {

namespace {

constexpr std::size_t kPasswordBytes = 30;
// Freeing memory writes over its begin, so that the rest is looked for.
constexpr std::size_t kSoughtFrom = 15;
constexpr const char* kUser =
    "admin";  // with its ":" 6 bytes, so that the password's Base64 form stands for itself
constexpr unsigned char kVeil = 0x80;

// Veiled, so that it isn't found where it is only looked for.
using Bytes = std::vector<unsigned char>;
Bytes veiled(kPasswordBytes);
std::array<char, kPasswordBytes + 1> inTheClear{};

void Unveil() {
  std::ranges::transform(veiled, inTheClear.begin(), [](auto c) { return static_cast<char>(c ^ kVeil); });
}
void Wipe() { explicit_bzero(inTheClear.data(), inTheClear.size()); }

Bytes Sought() { return Bytes(veiled.begin() + kSoughtFrom, veiled.end()); }

Bytes ToBase64(const Bytes& text) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto plain = [&](std::size_t i) { return static_cast<unsigned>(text[i] ^ kVeil); };
  Bytes coded;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    const unsigned bits = plain(i) << 16 | plain(i + 1) << 8 | plain(i + 2);
    for (const unsigned shift : {18U, 12U, 6U, 0U}) {
      coded.push_back(static_cast<unsigned char>(kDigits[bits >> shift & 63]) ^ kVeil);
    }
  }
  return coded;
}

std::size_t CountIn(const unsigned char* from, const unsigned char* to, const Bytes& text) {
  std::size_t found = 0;
  const auto same = [](unsigned char there, unsigned char veiledByte) { return there == (veiledByte ^ kVeil); };
  while ((from = std::search(from, to, text.begin(), text.end(), same)) != to) {
    ++found;
    ++from;
  }
  return found;
}

}  // namespace

Cameras::Cameras() {
  std::random_device random;
  std::ranges::generate(veiled, [&] { return static_cast<unsigned char>(('a' + random() % 26) ^ kVeil); });
  std::array<int, 2> pipe{};
  EXPECT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(pipe[1], 1);
    Unveil();
    setenv("KOLVEX_CAMERA_USER", kUser, 1);
    setenv("KOLVEX_CAMERA_PASSWORD", inTheClear.data(), 1);
    execl(KOLVEX_CAMERA, KOLVEX_CAMERA, "--quiet", "--camera",
          "group=1,address=127.0.0.1,inputs=1,outputs=1,serial=2",
          "group=2,address=127.0.0.2,inputs=1,outputs=1", nullptr);
    _exit(127);
  }
  close(pipe[1]);
  std::string said;
  char byte = 0;
  while (!said.ends_with("ready\n") && read(pipe[0], &byte, 1) == 1) {
    said += byte;
  }
  close(pipe[0]);
  EXPECT_TRUE(said.ends_with("ready\n")) << said;
}

Cameras::~Cameras() { SwitchOff(); }

void Cameras::SwitchOff() {
  if (process_ > 0) {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    process_ = 0;
  }
}

std::size_t Cameras::PasswordsIn(const std::string& text) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
  const Bytes sought = Sought();
  return CountIn(begin, begin + text.size(), sought) + CountIn(begin, begin + text.size(), ToBase64(sought));
}

std::string Cameras::MemoryWithPassword() {
  const Bytes sought = Sought();
  std::ifstream maps("/proc/self/maps");
  std::string text;
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    if (line.find(" rw-p ") != line.npos &&
        std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR, &from, &to) == 2 &&
        CountIn(reinterpret_cast<const unsigned char*>(from), reinterpret_cast<const unsigned char*>(to),
                sought) > 0) {
      text += line + "\n";
    }
  }
  return text;
}

struct GuestRun::Driver {
  Driver(HostLog& log, sarnevo::ipcapture::IIPCaptureDriverEx3* made, const char* address, const char* group)
      : driver(made), debugSink(log), allocator(log), sink(log, std::string(" ") + address) {
    params.address = address;
    params.user = kUser;
    params.inputs = params.outputs = 1;
    params.settings = {{1, "2000"}, {2, group}, {3, "1"}, {9, std::string("guest-") + group}};
    Unveil();
    params.password = inTheClear.data();
    EXPECT_TRUE(driver->Open(&debugSink, &allocator, &params));
    Wipe();
  }

  sarnevo::ipcapture::IIPCaptureDriverEx3* const driver;
  FakeParams params;
  FakeDebugSink debugSink;
  FakeAllocator allocator;
  FakeSink sink;
  FakeVideoParams video;
};

GuestRun::GuestRun(const std::string& path, int flags) : library_(dlopen(path.c_str(), flags)) {
  EXPECT_NE(library_, nullptr) << dlerror();
}

GuestRun::~GuestRun() {
  Look<sarnevo::ipcapture::UninitCapabilityQueryFunction>("UninitCapabilityQuery")();
  dlclose(library_);
}

template <typename Function>
Function* GuestRun::Look(const char* name) {
  return reinterpret_cast<Function*>(dlsym(library_, name));
}

bool GuestRun::BeginsQueries() {
  return Look<sarnevo::ipcapture::InitCapabilityQueryFunction>("InitCapabilityQuery")(this, 0) != 0;
}

void GuestRun::Query(const char* address, bool isCamera) {
  BeginsQueries();
  RecordingCapabilities capabilities;
  const std::size_t before = log_.Count("query");
  Unveil();
  const auto started = Look<sarnevo::ipcapture::StartCapabilityQueryFunction>("StartCapabilityQuery")(
      address, 80, kUser, inTheClear.data(), &capabilities);
  Wipe();
  EXPECT_EQ(started, isCamera ? 1U : 0U) << address;
  EXPECT_TRUE(log_.WaitFor("query", before + 1)) << Told();
  Look<sarnevo::ipcapture::UninitCapabilityQueryFunction>("UninitCapabilityQuery")();
  EXPECT_EQ(capabilities.Transcript().find("model") != std::string::npos, isCamera);
}

void GuestRun::Open() {
  auto* const create = Look<sarnevo::ipcapture::CreateIPCaptureFunction>("CreateIPCaptureEx3");
  drivers_.push_back(std::make_unique<Driver>(log_, create(), "127.0.0.1", "1"));
  drivers_.push_back(std::make_unique<Driver>(log_, create(), "127.0.0.2", "2"));
  auto* const ptz = drivers_.front()->driver->GetPTZDriverEx()->GetPTZApiEx(0);
  EXPECT_EQ(ptz->StartMove(sarnevo::PtzLeft, 8), 1);
  EXPECT_EQ(ptz->StopMove(), 1);
  EXPECT_EQ(ptz->AddPreposition("Door"), 1);
  EXPECT_EQ(ptz->DeletePreposition("Door"), 1);
}

void GuestRun::FailToStore() {
  EXPECT_EQ(drivers_.front()->driver->GetPTZDriverEx()->GetPTZApiEx(0)->AddPreposition("Gate"),
            sarnevo::PtzAddFailed);
}

void GuestRun::StartAll() {
  Open();
  for (const auto& each : drivers_) {
    EXPECT_TRUE(each->driver->GetVideoCapture()->StartCapture(0, &each->sink, &each->video));
    auto* const io = each->driver->GetCaptureIO();
    EXPECT_TRUE(io->SetCallback(this) && io->Start() && io->SetOutput(0, 2));
  }
}

void GuestRun::AwaitAll() {
  EXPECT_TRUE(log_.WaitFor("input", 2)) << Told();
  for (const char* const line : {"OnFrame 127.0.0.1", "OnFrame 127.0.0.2"}) {
    EXPECT_TRUE(log_.WaitFor(line, log_.Count(line) + 3)) << line;
  }
}

void GuestRun::EndAll() {
  auto* const remove = Look<sarnevo::ipcapture::DeleteIPCaptureFunction>("DeleteIPCaptureEx3");
  for (const auto& each : drivers_) {
    each->driver->Close();
    remove(each->driver);
  }
  drivers_.clear();
}

}  // namespace kolvex_test
