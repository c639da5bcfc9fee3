#include "GuestRun.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kolvex_test {

namespace {

using kolvex_soak::WaitUntil;

constexpr unsigned char kVeil = 0x80;

// Veiled, so that it isn't found where it is only looked for.
template <std::size_t kSize>
consteval std::array<unsigned char, kSize - 1> Veil(const char (&text)[kSize]) {
  std::array<unsigned char, kSize - 1> veiled{};
  std::transform(text, text + kSize - 1, veiled.begin(),
                 [](char c) { return static_cast<unsigned char>(c ^ kVeil); });
  return veiled;
}
// Freeing memory writes over its begin, so that the password's second half is looked for. It stands in the Base64
// form of user and password in a place of its own.
constexpr const char* kUser = "admin";
constexpr auto kPassword = Veil("glymbrovnaxutezjipodkwihqefsac");
constexpr auto kSought = Veil("jipodkwihqefsac");
constexpr auto kSoughtInBase64 = Veil("amlwb2Rrd2locWVmc2Fj");
std::array<char, kPassword.size() + 1> inTheClear{};

void Unveil() {
  std::ranges::transform(kPassword, inTheClear.begin(), [](auto c) { return static_cast<char>(c ^ kVeil); });
}
void Wipe() { explicit_bzero(inTheClear.data(), inTheClear.size()); }

bool IsIn(const char* from, const char* to, const auto& veiled) {
  const auto same = [](char there, unsigned char c) { return static_cast<unsigned char>(there ^ kVeil) == c; };
  return std::search(from, to, veiled.begin(), veiled.end(), same) != to;
}

}  // namespace

Cameras::Cameras() {
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
          "group=1,address=127.0.1.1,inputs=2,outputs=2,serial=2",
          "group=2,address=127.0.2.1,inputs=2,outputs=2,codec=mpeg4", nullptr);
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

bool Cameras::IsPasswordIn(const std::string& text) {
  const char* const end = text.data() + text.size();
  return IsIn(text.data(), end, kSought) || IsIn(text.data(), end, kSoughtInBase64);
}

std::string Cameras::MemoryWithPassword() {
  std::ifstream maps("/proc/self/maps");
  std::string text;
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    if (line.find(" rw-p ") != line.npos &&
        std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR, &from, &to) == 2 &&
        IsIn(reinterpret_cast<const char*>(from), reinterpret_cast<const char*>(to), kSought)) {
      text += line + "\n";
    }
  }
  return text;
}

const char* GuestRun::Host::GetUserName() { return kUser; }
const char* GuestRun::Host::GetPassword() { return inTheClear.data(); }

GuestRun::~GuestRun() {
  library_.uninit();
  dlclose(library_.handle);
}

bool GuestRun::Query(const char* address) {
  Host& host = hosts_[0];
  host.queryEnd = 0;
  host.told = 0;
  BeginsQueries();
  Unveil();
  const bool started = library_.start(address, 80, kUser, inTheClear.data(), &host) != 0;
  Wipe();
  EXPECT_TRUE(WaitUntil([&] { return host.queryEnd != 0; }, std::chrono::seconds(20)));
  library_.uninit();
  return started && host.queryEnd == 1 && host.told != 0;
}

void GuestRun::Open() {
  for (Host& host : hosts_) {
    host.driver = library_.create();
    Unveil();
    EXPECT_TRUE(host.driver->Open(&host, &host, &host));
    Wipe();
  }
  auto* const ptz = hosts_[0].driver->GetPTZDriverEx()->GetPTZApiEx(0);
  EXPECT_EQ(ptz->StartMove(sarnevo::PtzLeft, 8), 1);
  EXPECT_EQ(ptz->StopMove(), 1);
  EXPECT_EQ(ptz->AddPreposition("Door"), 1);
  EXPECT_EQ(ptz->DeletePreposition("Door"), 1);
}

void GuestRun::FailToStore() {
  EXPECT_EQ(hosts_[0].driver->GetPTZDriverEx()->GetPTZApiEx(0)->AddPreposition("Gate"), sarnevo::PtzAddFailed);
}

void GuestRun::StartAll() {
  Open();
  for (Host& host : hosts_) {
    EXPECT_TRUE(host.driver->GetVideoCapture()->StartCapture(0, &host, &host));
    auto* const io = host.driver->GetCaptureIO();
    EXPECT_TRUE(io->SetCallback(&host) && io->Start() && io->SetOutput(0, sarnevo::IOStateHigh));
  }
}

void GuestRun::AwaitAll() {
  for (Host& host : hosts_) {
    const auto comes = [&, frames = host.frames + 3] { return host.inputs > 0 && host.frames >= frames; };
    EXPECT_TRUE(WaitUntil(comes, std::chrono::seconds(20))) << host.address << "\n" << Told();
  }
}

void GuestRun::EndAll() {
  for (Host& host : hosts_) {
    host.driver->Close();
    library_.destroy(host.driver);
  }
}

}  // namespace kolvex_test
