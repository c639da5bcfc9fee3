#include "xml/CDinaFileBase.h"

using sarnevo::u8;
using sarnevo::platform::File;

CDinaFileBase::~CDinaFileBase() { Close(); }

bool CDinaFileBase::Open(const char* fileName, u8 mustExist, u8 readOnly) {
  Close();
  if (fileName == nullptr || *fileName == '\0') {
    return false;
  }
  name_ = fileName;
  readOnly_ = readOnly;
  return handle_.Open(name_, readOnly != 0 ? File::Access::Read : File::Access::ReadWrite,
                      mustExist != 0 ? File::IfMissing::Fail : File::IfMissing::Create) ==
         File::OpenResult::Opened;
}

bool CDinaFileBase::Close() {
  handle_.Close();
  return true;
}

bool CDinaFileBase::IsNonEmpty(const char* fileName) {
  if (!Open(fileName, 1, 1)) {
    return false;
  }
  const auto size = handle_.Size();
  Close();
  return size && *size != 0;
}
