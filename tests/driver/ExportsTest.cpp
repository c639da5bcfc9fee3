#include "kolvex/Exports.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <dlfcn.h>

#include "kolvex/IIPPTZDriver.h"
#include "support/ProgramRun.h"

namespace sarnevo::ipcapture {
namespace {

TEST(Exports, AreTheNamesThatHostsLookUpAndNothingElse) {
  EXPECT_EQ(kolvex_test::ProgramRun("nm").Run("-D --defined-only --format=just-symbols " KOLVEX_LIBRARY).out,
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

using Places = std::vector<std::intptr_t>;

template <typename... Operations>
Places Slots(Operations... operations) {
  return {SlotOf(operations)...};
}

TEST(Contract, KeepsEachOperationInItsSlot) {
  using Driver = IIPCaptureDriver;
  using Video = IIPVideoCapture;
  using Api = IIPPTZApi;
  EXPECT_EQ(Slots(&Driver::Open, &Driver::Close, &Driver::GetVideoCapture, &Driver::GetCaptureIO,
                  &IIPCaptureDriverEx::GetOptionalA, &IIPCaptureDriverEx::GetPTZDriver,
                  &IIPCaptureDriverEx2::GetOptionalB, &IIPCaptureDriverEx2::GetVideoCaptureEx,
                  &IIPCaptureDriverEx3::GetPTZDriverEx),
            (Places{1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Slots(&Video::GetChannelCount, &Video::StartCapture, &Video::StopCapture, &Video::ChangeFormat,
                  &Video::Reserved5, &Video::GetChannelStatus, &Video::Reserved7, &Video::Reserved8,
                  &IIPVideoCaptureEx::Reserved9, &IIPVideoCaptureEx::Reserved10),
            (Places{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(
      Slots(&IIPDriverParams::GetDevice, &IIPDriverParams::GetConnection, &IIPDriverParams::GetCustomSetting),
      (Places{1, 2, 4}));
  EXPECT_EQ(Slots(&IIPDeviceInfo::GetModel, &IIPDeviceInfo::GetChannelCount, &IIPDeviceInfo::GetInputCount,
                  &IIPDeviceInfo::GetOutputCount),
            (Places{2, 3, 5, 6}));
  EXPECT_EQ(Slots(&IIPConnectionInfo::GetAddress, &IIPConnectionInfo::GetPort, &IIPConnectionInfo::GetCodec,
                  &IIPConnectionInfo::GetUserName, &IIPConnectionInfo::GetPassword),
            (Places{1, 2, 4, 5, 6}));
  EXPECT_EQ(Slots(&IIPVideoParams::GetFormat, &IIPVideoParams::GetRate, &IIPVideoFormat::GetResolution,
                  &IIPResolution::GetWidth, &IIPResolution::GetHeight, &IIPVideoRate::GetFrameInterval,
                  &IIPVideoRate::GetQuality),
            (Places{1, 2, 3, 1, 2, 1, 3}));
  EXPECT_EQ(Slots(&IFrameAllocator::AllocateFrame, &IFrameAllocator::ReleaseFrame), (Places{2, 6}));
  EXPECT_EQ(Slots(&IFrame::GetData, &IFrame::SetDataSize, &IFrame::Finish, &IFrame::SetFourCC,
                  &IFrame::SetHeight, &IFrame::SetWidth, &IFrame::SetSizeClass),
            (Places{2, 4, 5, 10, 12, 14, 16}));
  EXPECT_EQ(Slots(&IFrameSink::OnFrame, &IFrameSink::OnNoData, &IDebugInfoSink::OnDebugInfo,
                  &CDebugInfoIf::GetLevel, &CDebugInfoIf::GetText),
            (Places{1, 3, 1, 1, 2}));
  EXPECT_EQ(Slots(&IIPPTZDriver::GetPTZApi, &IIPPTZDriverEx::GetPTZApiEx), (Places{1, 2}));
  EXPECT_EQ(Slots(&Api::IsPTZAvailable, &Api::StartMove, &Api::StopMove, &Api::Center, &Api::ZoomIn,
                  &Api::ZoomOut, &Api::Unzoom, &Api::AreaZoom, &Api::FocusNear, &Api::FocusFar, &Api::IrisOpen,
                  &Api::IrisClose, &Api::GetCapabilities, &Api::GetPrepositionCount, &Api::GetPrepositionName,
                  &Api::SelectPreposition, &Api::AddPreposition, &Api::DeletePreposition,
                  &Api::GetCurrentPreposition, &IIPPTZApiEx::CheckValue),
            (Places{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}));
}

}  // namespace
}  // namespace sarnevo::ipcapture
