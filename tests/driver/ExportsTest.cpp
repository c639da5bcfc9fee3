#include "kolvex/Exports.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

#include "kolvex/IIPPTZDriver.h"
#include "support/ProgramRun.h"

namespace sarnevo::ipcapture {
namespace {

// Functions at one address share a line.
TEST(Exports, AreTheNamesThatHostsLookUpAndNothingElse) {
  EXPECT_EQ(
      kolvex_test::ProgramRun("nm")
          .Run("-D --defined-only " KOLVEX_LIBRARY
               " | awk '{ names[$1] = names[$1] $3 \" \" } END { for (at in names) print names[at] }' | sort")
          .out,
      "CreateIPCapture CreateIPCaptureEx CreateIPCaptureEx2 CreateIPCaptureEx3 \n"
      "DeleteIPCapture DeleteIPCaptureEx DeleteIPCaptureEx2 DeleteIPCaptureEx3 \n"
      "InitCapabilityQuery \nStartCapabilityQuery \nTerminateCapabilityQuery \nUninitCapabilityQuery \n");
}

using Places = std::vector<std::intptr_t>;

// Each virtual operation's place in its class, counted as the contract does: the destructor is 0, though the
// ABI of Itanium C++ gives it two places.
template <typename... Operations>
Places Slots(Operations... operations) {
  constexpr auto kSize = static_cast<std::intptr_t>(sizeof(void*));
  return {(std::bit_cast<std::array<std::intptr_t, 2>>(operations)[0] - 1) / kSize - 1 ...};
}

TEST(Contract, KeepsEachOperationInItsSlot) {
  using Driver = IIPCaptureDriverEx3;
  using Video = IIPVideoCaptureEx;
  using Api = IIPPTZApiEx;
  using Params = IIPDriverParams;
  using Device = IIPDeviceInfo;
  using Connection = IIPConnectionInfo;
  EXPECT_EQ(Slots(&Driver::Open, &Driver::Close, &Driver::GetVideoCapture, &Driver::GetCaptureIO,
                  &Driver::GetOptionalA, &Driver::GetPTZDriver, &Driver::GetOptionalB,
                  &Driver::GetVideoCaptureEx, &Driver::GetPTZDriverEx),
            (Places{1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Slots(&Video::GetChannelCount, &Video::StartCapture, &Video::StopCapture, &Video::ChangeFormat,
                  &Video::Reserved5, &Video::GetChannelStatus, &Video::Reserved7, &Video::Reserved8,
                  &Video::Reserved9, &Video::Reserved10),
            (Places{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(
      Slots(&Params::GetDevice, &Params::GetConnection, &Params::GetCustomSetting, &Device::GetModel,
            &Device::GetChannelCount, &Device::GetInputCount, &Device::GetOutputCount, &Connection::GetAddress,
            &Connection::GetPort, &Connection::GetCodec, &Connection::GetUserName, &Connection::GetPassword),
      (Places{1, 2, 4, 2, 3, 5, 6, 1, 2, 4, 5, 6}));
  EXPECT_EQ(Slots(&IIPVideoParams::GetFormat, &IIPVideoParams::GetRate, &IIPVideoFormat::GetResolution,
                  &IIPResolution::GetWidth, &IIPResolution::GetHeight, &IIPVideoRate::GetFrameInterval,
                  &IIPVideoRate::GetQuality),
            (Places{1, 2, 3, 1, 2, 1, 3}));
  EXPECT_EQ(Slots(&IFrameAllocator::AllocateFrame, &IFrameAllocator::ReleaseFrame, &IFrameSink::OnFrame,
                  &IFrameSink::OnNoData, &IDebugInfoSink::OnDebugInfo, &CDebugInfoIf::GetLevel,
                  &CDebugInfoIf::GetText, &IIPPTZDriverEx::GetPTZApi, &IIPPTZDriverEx::GetPTZApiEx),
            (Places{2, 6, 1, 3, 1, 1, 2, 1, 2}));
  EXPECT_EQ(Slots(&IFrame::GetData, &IFrame::SetDataSize, &IFrame::Finish, &IFrame::SetFourCC,
                  &IFrame::SetHeight, &IFrame::SetWidth, &IFrame::SetSizeClass),
            (Places{2, 4, 5, 10, 12, 14, 16}));
  EXPECT_EQ(
      Slots(&Api::IsPTZAvailable, &Api::StartMove, &Api::StopMove, &Api::Center, &Api::ZoomIn, &Api::ZoomOut,
            &Api::Unzoom, &Api::AreaZoom, &Api::FocusNear, &Api::FocusFar, &Api::IrisOpen, &Api::IrisClose,
            &Api::GetCapabilities, &Api::GetPrepositionCount, &Api::GetPrepositionName, &Api::SelectPreposition,
            &Api::AddPreposition, &Api::DeletePreposition, &Api::GetCurrentPreposition, &Api::CheckValue),
      (Places{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}));
}

}  // namespace
}  // namespace sarnevo::ipcapture
