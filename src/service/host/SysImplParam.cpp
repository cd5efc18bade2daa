#include "service/host/SysImplParam.h"

#include "service/host/SystemSpecificImpl.h"

bool SysImplParam::setFromText(const std::string& text) {
  if (!text.empty()) return TextParam::setFromText(text);
  if (const char* detected = detectBackendName()) value_ = detected;
  return accept();
}

std::string SysImplParam::resolved() const { return value().empty() ? backendNameOrNull() : value(); }
