// SysImplParam: the `sys` parameter, which names the init system that a command uses.
//
//   sys_.resolved()        // "systemd", "initd", ..., or "null" if none is found
#pragma once

#include "command/parameters/InputParams.h"

// The key is "sys". "sys-impl" is the word shown in help, and deliberately also a hidden key. If both keys are given,
// the later word counts. A text is stored as given. The empty text stores the name of the init system detected on this
// host; if none is detected, it leaves the value unchanged.
class SysImplParam : public TextParam {
 public:
  SysImplParam() : TextParam("sys", Need::optional, Show::listed, "sys-impl", "sys impl name") {
    alsoTakes("sys-impl");
  }
  bool setFromText(const std::string& text) override;

  // Returns the value if it is not empty, else the name of the detected init system, else "null".
  std::string resolved() const;
};
