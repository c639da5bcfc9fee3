#include "ptz/CGroup1PTZComm.h"

#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

#include "camera/CgiText.h"
#include "camera/ReplyBody.h"
#include "http/HttpStatus.h"

namespace sarnevo {

namespace {

constexpr char kComportRequest[] = "/comport.cgi?action=retrieve";
constexpr char kProtocolKey[] = "serial_device";

// The PtzProtocol in the reply. A number that is too large to read becomes one that no protocol has, and is ignored.
u32 ParseProtocol(std::string_view reply) noexcept {
  constexpr u32 kUnknown = PtzProtocolPelcoD + 1;
  const std::string_view value = FindCgiValue(reply, kProtocolKey, "=");
  u32 protocol = PtzProtocolNone;  // stays when there are no digits
  const auto result = std::from_chars(value.data(), value.data() + value.size(), protocol);
  return result.ec == std::errc::result_out_of_range ? kUnknown : protocol;
}

}  // namespace

CGroup1PTZComm::CGroup1PTZComm(IIPDeviceParams* device, const RequestPolicy& policy)
    : CBasePTZComm(device), policy_(policy), presetRequest_(*device, policy) {}

CGroup1PTZComm::~CGroup1PTZComm() { Close(); }

u32 CGroup1PTZComm::IsPTZAvailable(IIPParams*) { return GetPtzProtocol() != PtzProtocolNone ? 1 : 0; }

u32 CGroup1PTZComm::GetPtzProtocol() {
  if (protocol_.load(std::memory_order_relaxed) == PtzProtocolNone) {
    UpdatePtzProtocol();
  }
  return protocol_.load(std::memory_order_relaxed);
}

i32 CGroup1PTZComm::GetCapabilities(CPtzCapabilities* record) {
  for (u32 word = 1; word < CPtzCapabilities::kWords; ++word) {
    if (word != CPtzCapabilities::kPrepositionLimit && word != CPtzCapabilities::kPrepositionCount) {
      record->words[word] = word <= 5 ? 1 : 0;
    }
  }
  return PtzDone;
}

bool CGroup1PTZComm::StorePreset(u32 slot) { return ProcessPresetCommand(PresetStore, slot); }

bool CGroup1PTZComm::GotoPreset(u32 slot, u32) { return ProcessPresetCommand(PresetGoto, slot); }

bool CGroup1PTZComm::DeletePreset(u32 slot) { return ProcessPresetCommand(PresetDelete, slot); }

void CGroup1PTZComm::HandleWorkItem(IWorkItem* item) {
  const StopClaim::Scope scope(Claim());
  std::vector<Failure> failures;
  {
    CameraRequest http(Camera(), policy_);
    const std::string text = PrepareItem(static_cast<const CWorkItem&>(*item), http, failures);
    if (!text.empty() && !http.Send("GET", text.c_str(), false) && ShouldLogFailure()) {
      failures.push_back({"sarnevo::CGroup1PTZComm::HandleWorkItem", text, http.GetStatusCode()});
    }
  }
  // Only now: neither a camera command nor a connection waits for what the host does with a message.
  for (const Failure& failure : failures) {
    if (own_thread::IsLetGo()) {
      return;  // the first message's callback has ended this object: the driver may be gone
    }
    ReportNotSent(failure);
  }
}

// The text of the item's request, empty for none. Sends what has to go out in front of it.
std::string CGroup1PTZComm::PrepareItem(const CWorkItem& item, Web::HttpRequest& http,
                                        std::vector<Failure>& failures) {
  switch (item.type) {
    case PTZItemStop:
      return Commands().StopCommand();
    case PTZItemMove: {
      std::string text = Commands().MoveCommand(item.param1, static_cast<i32>(item.param2));
      SetFocusIris(http, *item.params, 0, 0, failures);
      return text;
    }
    case PTZItemLens:
      if (item.param1 == LensFocusNear || item.param1 == LensFocusFar) {
        SetFocusIris(http, *item.params, 1, item.params->GetIrisManual(), failures);
      } else if (item.param1 == LensIrisOpen || item.param1 == LensIrisClose) {
        SetFocusIris(http, *item.params, item.params->GetFocusManual(), 1, failures);
      }
      return Commands().LensCommand(item.param1);
    default:
      return {};  // the cameras don't know the others
  }
}

// Going to manual sends nothing of its own: the lens command that follows does that.
void CGroup1PTZComm::SetFocusIris(Web::HttpRequest& http, IIPParams& params, u8 focusManual, u8 irisManual,
                                  std::vector<Failure>& failures) {
  if (params.GetFocusManual() != focusManual) {
    params.SetFocusManual(focusManual);
    if (focusManual == 0 && !SendAutomatic(http, Commands().AutoFocusCommand(), failures)) {
      return;
    }
  }
  if (params.GetIrisManual() != irisManual) {
    params.SetIrisManual(irisManual);
    if (irisManual == 0) {
      SendAutomatic(http, Commands().AutoIrisCommand(), failures);
    }
  }
}

// False without a protocol. A failure holds nothing up: the movement that follows matters more to the operator than a
// sharp picture.
bool CGroup1PTZComm::SendAutomatic(Web::HttpRequest& http, const std::string& text,
                                   std::vector<Failure>& failures) {
  if (!text.empty() && !http.Send("GET", text.c_str(), false)) {
    failures.push_back({"sarnevo::CGroup1PTZComm::SetFocusIris", text, http.GetStatusCode()});
  }
  return !text.empty();
}

bool CGroup1PTZComm::ProcessPresetCommand(PresetOperation operation, u32 slot) {
  std::string text = Commands().PresetCommand(operation, slot);
  if (presetRequest_.Send("GET", text.c_str(), false)) {
    return true;
  }
  if (ShouldLogFailure()) {
    ReportNotSent(
        {"sarnevo::CGroup1PTZComm::ProcessPresetCommand", std::move(text), presetRequest_.GetStatusCode()});
  }
  return false;
}

void CGroup1PTZComm::UpdatePtzProtocol() {
  constexpr char kOperation[] = "sarnevo::CGroup1PTZComm::UpdatePtzProtocol";
  CameraRequest http(Camera(), policy_);
  if (!http.Send("GET", kComportRequest, false)) {
    ReportNotSent({kOperation, kComportRequest, http.GetStatusCode()});
    return;
  }
  if (http.GetStatusCode() != Web::kStatusOk) {
    DebugMessage(DebugLevelFailure, "%s: HTTP message to %s:%d, message=%s returned error, http status=%d",
                 kOperation, Camera().GetAddress().c_str(), Camera().GetPort(), kComportRequest,
                 static_cast<int>(http.GetStatusCode()));
    return;
  }
  const u32 available = http.GetDataAvailable();
  if (available == 0) {
    return;
  }
  std::vector<u8> reply;
  if (!ReadBody(http, available, available, reply)) {
    DebugMessage(DebugLevelFailure, "%s: cannot read response from %s:%d", kOperation,
                 Camera().GetAddress().c_str(), Camera().GetPort());
    return;
  }
  const u32 protocol = ParseProtocol({reinterpret_cast<const char*>(reply.data()), reply.size()});
  if (protocol <= PtzProtocolPelcoD) {
    // Two threads may ask at the same time; once a protocol is known it stays.
    u32 unknown = PtzProtocolNone;
    protocol_.compare_exchange_strong(unknown, protocol, std::memory_order_relaxed);
  }
}

void CGroup1PTZComm::ReportNotSent(const Failure& failure) {
  DebugMessage(DebugLevelFailure, "%s: cannot send HTTP message to %s:%d, message=%s, http status=%d",
               failure.operation, Camera().GetAddress().c_str(), Camera().GetPort(), failure.text.c_str(),
               static_cast<int>(failure.status));
}

}  // namespace sarnevo
