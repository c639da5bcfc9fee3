#include "kolvex/Exports.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <dlfcn.h>

#include "kolvex/IIPPTZDriver.h"
#include "support/FakeHost.h"

namespace sarnevo::ipcapture {
namespace {

std::string OutputOf(const std::string& command) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string text;
  for (int next = std::fgetc(pipe.get()); next != EOF; next = std::fgetc(pipe.get())) {
    text += static_cast<char>(next);
  }
  return text;
}

TEST(Exports, AreTheNamesThatHostsLookUpAndNothingElse) {
  EXPECT_EQ(OutputOf("nm -D --defined-only --format=just-symbols " KOLVEX_LIBRARY " | sort"),
            "CreateIPCapture\nCreateIPCaptureEx\nCreateIPCaptureEx2\nCreateIPCaptureEx3\n"
            "DeleteIPCapture\nDeleteIPCaptureEx\nDeleteIPCaptureEx2\nDeleteIPCaptureEx3\n"
            "InitCapabilityQuery\nStartCapabilityQuery\nTerminateCapabilityQuery\nUninitCapabilityQuery\n");
}

TEST(Exports, ServeAHostThatLoadsTheLibraryAtRunTime) {
  void* const library = dlopen(KOLVEX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  for (const std::string suffix : {"", "Ex", "Ex2", "Ex3"}) {
    SCOPED_TRACE(suffix);
    auto* const create =
        reinterpret_cast<CreateIPCaptureFunction*>(dlsym(library, ("CreateIPCapture" + suffix).c_str()));
    auto* const remove =
        reinterpret_cast<DeleteIPCaptureFunction*>(dlsym(library, ("DeleteIPCapture" + suffix).c_str()));
    ASSERT_NE(create, nullptr);
    ASSERT_NE(remove, nullptr);
    EXPECT_EQ(reinterpret_cast<void*>(create), dlsym(library, "CreateIPCapture"));
    EXPECT_EQ(reinterpret_cast<void*>(remove), dlsym(library, "DeleteIPCapture"));

    kolvex_test::HostLog log;
    kolvex_test::FakeDebugSink sink(log);
    kolvex_test::FakeAllocator allocator(log);
    kolvex_test::FakeParams params;
    IIPCaptureDriverEx3* const driver = create();
    ASSERT_NE(driver, nullptr);
    EXPECT_TRUE(driver->Open(&sink, &allocator, &params));
    EXPECT_TRUE(log.WaitFor("OnDebugInfo 3 DRIVER IS OPENED"));
    EXPECT_FALSE(driver->GetVideoCapture()->StopCapture(0));
    driver->Close();
    remove(driver);
    remove(nullptr);
    remove(create());  // never opened
  }
  dlclose(library);
}

// A virtual operation's place in its class, counted as the contract does: the destructor is 0, though the
// ABI of Itanium C++ gives it two places.
template <typename Operation>
std::intptr_t SlotOf(Operation operation) {
  std::array<std::intptr_t, 2> representation{};
  static_assert(sizeof(operation) == sizeof(representation));
  std::memcpy(representation.data(), &operation, sizeof(operation));
  return (representation[0] - 1) / static_cast<std::intptr_t>(sizeof(void*)) - 1;
}

TEST(Contract, KeepsEachOperationInItsSlot) {
  EXPECT_EQ(SlotOf(&IIPCaptureDriver::Open), 1);
  EXPECT_EQ(SlotOf(&IIPCaptureDriver::Close), 2);
  EXPECT_EQ(SlotOf(&IIPCaptureDriver::GetVideoCapture), 3);
  EXPECT_EQ(SlotOf(&IIPCaptureDriver::GetCaptureIO), 4);
  EXPECT_EQ(SlotOf(&IIPCaptureDriverEx::GetOptionalA), 5);
  EXPECT_EQ(SlotOf(&IIPCaptureDriverEx::GetPTZDriver), 6);
  EXPECT_EQ(SlotOf(&IIPCaptureDriverEx2::GetOptionalB), 7);
  EXPECT_EQ(SlotOf(&IIPCaptureDriverEx2::GetVideoCaptureEx), 8);
  EXPECT_EQ(SlotOf(&IIPCaptureDriverEx3::GetPTZDriverEx), 9);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::GetChannelCount), 1);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::StartCapture), 2);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::StopCapture), 3);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::ChangeFormat), 4);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::Reserved5), 5);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::GetChannelStatus), 6);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::Reserved7), 7);
  EXPECT_EQ(SlotOf(&IIPVideoCapture::Reserved8), 8);
  EXPECT_EQ(SlotOf(&IIPVideoCaptureEx::Reserved9), 9);
  EXPECT_EQ(SlotOf(&IIPVideoCaptureEx::Reserved10), 10);
  EXPECT_EQ(SlotOf(&IIPDriverParams::GetDevice), 1);
  EXPECT_EQ(SlotOf(&IIPDriverParams::GetConnection), 2);
  EXPECT_EQ(SlotOf(&IIPDriverParams::GetCustomSetting), 4);
  EXPECT_EQ(SlotOf(&IIPDeviceInfo::GetModel), 2);
  EXPECT_EQ(SlotOf(&IIPDeviceInfo::GetChannelCount), 3);
  EXPECT_EQ(SlotOf(&IIPDeviceInfo::GetInputCount), 5);
  EXPECT_EQ(SlotOf(&IIPDeviceInfo::GetOutputCount), 6);
  EXPECT_EQ(SlotOf(&IIPConnectionInfo::GetAddress), 1);
  EXPECT_EQ(SlotOf(&IIPConnectionInfo::GetPort), 2);
  EXPECT_EQ(SlotOf(&IIPConnectionInfo::GetCodec), 4);
  EXPECT_EQ(SlotOf(&IIPConnectionInfo::GetUserName), 5);
  EXPECT_EQ(SlotOf(&IIPConnectionInfo::GetPassword), 6);
  EXPECT_EQ(SlotOf(&IIPVideoParams::GetFormat), 1);
  EXPECT_EQ(SlotOf(&IIPVideoParams::GetRate), 2);
  EXPECT_EQ(SlotOf(&IIPVideoFormat::GetResolution), 3);
  EXPECT_EQ(SlotOf(&IIPResolution::GetWidth), 1);
  EXPECT_EQ(SlotOf(&IIPResolution::GetHeight), 2);
  EXPECT_EQ(SlotOf(&IIPVideoRate::GetFrameInterval), 1);
  EXPECT_EQ(SlotOf(&IIPVideoRate::GetQuality), 3);
  EXPECT_EQ(SlotOf(&IFrameAllocator::AllocateFrame), 2);
  EXPECT_EQ(SlotOf(&IFrameAllocator::ReleaseFrame), 6);
  EXPECT_EQ(SlotOf(&IFrame::GetData), 2);
  EXPECT_EQ(SlotOf(&IFrame::SetDataSize), 4);
  EXPECT_EQ(SlotOf(&IFrame::Finish), 5);
  EXPECT_EQ(SlotOf(&IFrame::SetFourCC), 10);
  EXPECT_EQ(SlotOf(&IFrame::SetHeight), 12);
  EXPECT_EQ(SlotOf(&IFrame::SetWidth), 14);
  EXPECT_EQ(SlotOf(&IFrame::SetSizeClass), 16);
  EXPECT_EQ(SlotOf(&IFrameSink::OnFrame), 1);
  EXPECT_EQ(SlotOf(&IFrameSink::OnNoData), 3);
  EXPECT_EQ(SlotOf(&IDebugInfoSink::OnDebugInfo), 1);
  EXPECT_EQ(SlotOf(&CDebugInfoIf::GetLevel), 1);
  EXPECT_EQ(SlotOf(&CDebugInfoIf::GetText), 2);
}

TEST(Contract, KeepsThePTZOperationsInTheirSlots) {
  using Api = IIPPTZApi;
  EXPECT_EQ(SlotOf(&IIPPTZDriver::GetPTZApi), 1);
  EXPECT_EQ(SlotOf(&IIPPTZDriverEx::GetPTZApiEx), 2);
  EXPECT_EQ(SlotOf(&IIPPTZApiEx::CheckValue), 20);
  const std::vector<std::intptr_t> slots{SlotOf(&Api::IsPTZAvailable),
                                         SlotOf(&Api::StartMove),
                                         SlotOf(&Api::StopMove),
                                         SlotOf(&Api::Center),
                                         SlotOf(&Api::ZoomIn),
                                         SlotOf(&Api::ZoomOut),
                                         SlotOf(&Api::Unzoom),
                                         SlotOf(&Api::AreaZoom),
                                         SlotOf(&Api::FocusNear),
                                         SlotOf(&Api::FocusFar),
                                         SlotOf(&Api::IrisOpen),
                                         SlotOf(&Api::IrisClose),
                                         SlotOf(&Api::GetCapabilities),
                                         SlotOf(&Api::GetPrepositionCount),
                                         SlotOf(&Api::GetPrepositionName),
                                         SlotOf(&Api::SelectPreposition),
                                         SlotOf(&Api::AddPreposition),
                                         SlotOf(&Api::DeletePreposition),
                                         SlotOf(&Api::GetCurrentPreposition)};
  std::vector<std::intptr_t> inOrder(slots.size());
  std::iota(inOrder.begin(), inOrder.end(), 1);
  EXPECT_EQ(slots, inOrder);
}

}  // namespace
}  // namespace sarnevo::ipcapture
