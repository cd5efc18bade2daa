// The `sys` parameter: which init system a command acts through.
//
//   sys_.resolved()        // "systemd", "initd", ..., or "null" where none is found
#pragma once

#include "command/parameters/InputParams.h"

// "sys-impl" is only the word shown in help; the key is "sys". A text is stored as given; the empty text stores the
// name of the init system that this host has, and leaves the value as it was when the host has none.
class SysImplParam : public TextParam {
 public:
  SysImplParam() : TextParam("sys", Need::optional, Show::listed, "sys-impl", "sys impl name") {}
  bool setFromText(const std::string& text) override;

  // The name to use: the value, else the detected init system, else "null".
  std::string resolved() const;
};
