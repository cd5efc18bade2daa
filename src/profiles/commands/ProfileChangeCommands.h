// The commands on existing profiles. ProfileChanges.h documents the operations behind them.
//
// `profile modify` and `profile rename` call ensureActiveProfile() first, and continue if it fails. `profile delete`
// calls it after a successful deletion and ignores its failure. `profile activate` calls it only if ".current" or
// "--active" selects the active profile and the directory of that profile is missing. Without authorization they
// never call it.
#pragma once

#include <string_view>

#include "command/framework/CommandCore.h"
#include "profiles/commands/ProfileCommands.h"
#include "service/host/SysImplParam.h"

// profile modify SELECTOR
class Hipcmd_ModifyProfile : public RavctlCommandInstance {
 public:
  explicit Hipcmd_ModifyProfile(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
  StringParam newName_{"new_name", Need::optional};
  HelmsorParam helmsor_{Need::optional};
  OptionalNetworkParam network_;
  OptionalActivationParam invitation_;
  OptionalLogLevelParam logLevel_;
  SysImplParam sys_;
  SingleWordParam activate_{"activate"};
  ProfileDetailsResultField details_;
};

// profile activate SELECTOR
class Hipcmd_ActivateProfile : public RavctlCommandInstance {
 public:
  explicit Hipcmd_ActivateProfile(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
  SysImplParam sys_;
  StringResult profileName_{"profile_name"};
};

// profile delete SELECTOR
class Hipcmd_DeleteProfile : public RavctlCommandInstance {
 public:
  explicit Hipcmd_DeleteProfile(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
};

// profile rename SELECTOR new_name=...
class Hipcmd_RenameProfile : public RavctlCommandInstance {
 public:
  explicit Hipcmd_RenameProfile(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
  StringParam newName_{"new_name", Need::required};
  StringResult profileName_{"profile_name"};
};

// support reset SELECTOR
class Hipcmd_ProfileReset : public RavctlCommandInstance {
 public:
  explicit Hipcmd_ProfileReset(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
  StringResult reset_{"support reset"};
};
