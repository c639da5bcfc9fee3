#include "ptz/CPTZControl.h"

#include <cstring>
#include <exception>
#include <optional>

#include "ptz/CPTZHandler.h"
#include "ptz/PtzCodes.h"
#include "xml/Utf8.h"

namespace sarnevo {

namespace {

constexpr u32 kSlots = 32;
constexpr u32 kFixedSlots = 64;

i32 CopyNameToBuffer(const std::wstring& name, char* buffer, u32 bufferSize) {
  const std::string text = ToUtf8(name);
  if (buffer == nullptr || text.size() >= bufferSize) {
    return PtzInvalidArgument;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return PtzDone;
}

}  // namespace

CPTZControl::CPTZControl(CPTZHandler* handler, u32 channel)
    : handler_(handler), channel_(channel), prepositions_(channel, 1) {}

CPTZControl::~CPTZControl() { CloseComm(); }

bool CPTZControl::Open(TSmartPtr<CXMLPrepositionReader> reader, CBasePTZComm* comm) {
  comm_ = comm;
  if (comm_ != nullptr) {
    static_cast<void>(comm_->GetPtzProtocol());
    const bool opened = comm_->Open() == PtzDone;
    // A camera that is just booting may have answered only when the commands were opened. Their protocol decides.
    if (comm_->CommandProtocol() == PtzProtocolThreeByte) {
      prepositions_.SetFixedSlots();
      comm_->SetMaxPrepositions(kFixedSlots);
    } else {
      comm_->SetMaxPrepositions(kSlots);
    }
    // Without a name for its preset file a camera has no PTZ.
    if (opened && reader) {
      prepositions_.SetCamera(comm_, comm_->GetMaxPrepositions());
      prepositions_.SetReader(reader);
      return true;
    }
  }
  CloseComm();
  return false;
}

void CPTZControl::BeginClose() noexcept { comm_->RequestStop(); }

void CPTZControl::End() noexcept {
  if (comm_->IsOwnThread() || !comm_->Claim().Take()) {
    // The host ends the driver in a message of this very thread, or two of them end each other.
    own_thread::LetGo();
    comm_->Claim().Take();
  }
  comm_->Close();
}

void CPTZControl::CloseComm() {
  if (comm_ != nullptr) {
    comm_->Close();
    delete comm_;
    comm_ = nullptr;
  }
}

// The host may end the driver in a message, and sees no exception; what can still throw in here is a lack of memory.
template <typename Result, typename Operation>
Result CPTZControl::Inside(Result failure, Operation operation) noexcept {
  const auto keep = handler_->shared_from_this();
  try {
    return operation();
  } catch (const std::exception&) {
    return failure;
  }
}

// A movement that is on its way takes the camera off the current position; one that was refused doesn't.
template <typename Operation>
i32 CPTZControl::Move(Operation operation) noexcept {
  return Inside<i32>(PtzNotQueued, [&] {
    const i32 result = operation();
    if (result == PtzDone) {
      prepositions_.ClearCurrentPreposition();
    }
    return result;
  });
}

u32 CPTZControl::IsPTZAvailable() {
  return Inside(0U, [this] { return comm_->IsPTZAvailable(this); });
}

i32 CPTZControl::StartMove(u32 direction, i32 speed) {
  return Move([&] { return comm_->StartMove(this, direction, speed); });
}

i32 CPTZControl::StopMove() {
  return Inside<i32>(PtzNotQueued, [this] { return comm_->StopMove(this); });
}

i32 CPTZControl::Center(u32 a, u32 b, u32 c) {
  return Move([&] { return comm_->Center(this, a, b, c); });
}

i32 CPTZControl::ZoomIn(i32 speed) { return StartMove(PtzZoomIn, speed); }

i32 CPTZControl::ZoomOut(i32 speed) { return StartMove(PtzZoomOut, speed); }

i32 CPTZControl::Unzoom(u32 a) {
  return Move([&] { return comm_->Unzoom(this, a); });
}

i32 CPTZControl::AreaZoom(u32 a, u32 b, u32 c, u32 d) {
  return Move([&] { return comm_->AreaZoom(this, a, b, c, d); });
}

i32 CPTZControl::FocusNear(u32 speed) {
  return Move([&] { return comm_->Focus(this, 1, speed); });
}

i32 CPTZControl::FocusFar(u32 speed) {
  return Move([&] { return comm_->Focus(this, 0, speed); });
}

i32 CPTZControl::IrisOpen(u32 speed) {
  return Move([&] { return comm_->Iris(this, 1, speed); });
}

i32 CPTZControl::IrisClose(u32 speed) {
  return Move([&] { return comm_->Iris(this, 0, speed); });
}

i32 CPTZControl::GetCapabilities(CPtzCapabilities* record) {
  if (record == nullptr) {
    return PtzInvalidArgument;
  }
  const i32 result = comm_->GetCapabilities(record);
  if (result == PtzDone) {
    record->words[CPtzCapabilities::kPrepositionLimit] = comm_->GetMaxPrepositions() + 1;
    record->words[CPtzCapabilities::kPrepositionCount] = prepositions_.GetPrepositionCount();
  }
  return result;
}

u32 CPTZControl::GetPrepositionCount() { return prepositions_.GetPrepositionCount(); }

// A name for the host, which @p find fills in.
template <typename Find>
i32 CPTZControl::NameInto(char* buffer, u32 bufferSize, Find find) noexcept {
  return Inside<i32>(PtzNoPreposition, [&]() -> i32 {
    std::wstring name;
    return find(name) ? CopyNameToBuffer(name, buffer, bufferSize) : PtzNoPreposition;
  });
}

i32 CPTZControl::GetPrepositionName(u32 position, char* buffer, u32 bufferSize) {
  return NameInto(buffer, bufferSize,
                  [&](std::wstring& name) { return prepositions_.GetPrepositionName(position, name); });
}

i32 CPTZControl::GetCurrentPreposition(char* buffer, u32 bufferSize) {
  return NameInto(buffer, bufferSize,
                  [&](std::wstring& name) { return prepositions_.GetCurrentPreposition(name); });
}

// The operation with the name as the list has it. What is no text at all can't name anything and reaches neither
// list nor camera.
template <typename Operation>
i32 CPTZControl::WithName(const char* operationName, const char* name, i32 failure, Operation operation) {
  if (name == nullptr) {
    return PtzInvalidArgument;
  }
  return Inside<i32>(failure, [&]() -> i32 {
    const std::optional<std::wstring> wide = FromUtf8(name);
    if (!wide) {
      handler_->DebugMessage(DebugLevelFailure, "%s: the name of the preposition is not UTF-8", operationName);
      return PtzInvalidArgument;
    }
    return operation(*wide);
  });
}

i32 CPTZControl::SelectPreposition(u32 option, const char* name) {
  return WithName("sarnevo::CPTZControl::SelectPreposition", name, PtzNoPreposition,
                  [&](const std::wstring& wide) {
                    return prepositions_.SelectPreposition(wide, option) ? PtzDone : PtzNoPreposition;
                  });
}

i32 CPTZControl::AddPreposition(const char* name) {
  return WithName("sarnevo::CPTZControl::AddPreposition", name, PtzAddFailed,
                  [&](const std::wstring& wide) { return prepositions_.AddPreposition(wide); });
}

i32 CPTZControl::DeletePreposition(const char* name) {
  return WithName("sarnevo::CPTZControl::DeletePreposition", name, PtzNoPreposition,
                  [&](const std::wstring& wide) {
                    return prepositions_.DeletePreposition(wide) ? PtzDone : PtzNoPreposition;
                  });
}

u32 CPTZControl::CheckValue(u32 value) { return value != 0 ? 1 : 0; }

}  // namespace sarnevo
