#pragma once

#include <string>
#include <vector>

#include "camera/CameraRequest.h"
#include "ptz/CBasePTZComm.h"

namespace sarnevo {

/// Drives the PTZ head at the serial port of a group 1 camera: each command is a frame of the head's protocol that the
/// camera's "/serial.cgi" writes to the port.
///
/// Work items run on the PTZ thread, each over a connection of its own; preset commands and the question
/// for the protocol on the caller's thread. Focus and iris go back to automatic whenever the head moves.
class CGroup1PTZComm : public CBasePTZComm {
 public:
  /// Reads address, port and credentials of @p device, which outlives this object. Causes no traffic.
  explicit CGroup1PTZComm(IIPDeviceParams* device, const RequestPolicy& policy = request_policy::kPtz);
  /// Closes, so that the thread is gone before the members are.
  ~CGroup1PTZComm() override;

  u32 IsPTZAvailable(IIPParams* params) override;
  i32 GetCapabilities(CPtzCapabilities* record) override;
  u32 GetPtzProtocol() override;

  bool StorePreset(u32 slot) override;
  bool GotoPreset(u32 slot, u32 option) override;
  bool DeletePreset(u32 slot) override;

 protected:
  void HandleWorkItem(IWorkItem* item) override;

 private:
  // A request that didn't reach the camera, for the message about it.
  struct Failure {
    const char* operation;
    std::string text;
    u32 status;
  };

  std::string PrepareItem(const CWorkItem& item, Web::HttpRequest& http, std::vector<Failure>& failures);
  void SetFocusIris(Web::HttpRequest& http, IIPParams& params, u8 focusManual, u8 irisManual,
                    std::vector<Failure>& failures);
  bool SendAutomatic(Web::HttpRequest& http, const std::string& text, std::vector<Failure>& failures);
  bool ProcessPresetCommand(PresetOperation operation, u32 slot);
  void UpdatePtzProtocol();
  void ReportNotSent(const Failure& failure);

  const RequestPolicy policy_;

  // Used by one thread at a time: the caller's lock around the list of stored positions sees to that.
  CameraRequest presetRequest_;
};

}  // namespace sarnevo
