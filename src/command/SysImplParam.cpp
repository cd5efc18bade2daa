#include "command/SysImplParam.h"

#include "service/SystemSpecificImpl.h"

bool SysImplParam::setFromText(const std::string& text) {
  if (!text.empty()) return TextParam::setFromText(text);
  if (const char* detected = detectBackendName()) value_ = detected;
  return accept();
}

std::string SysImplParam::resolved() const { return value().empty() ? backendNameOrNull() : value(); }
