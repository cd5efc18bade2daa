// The commands that list, show and create profiles. ProfileControl.h documents the operations behind them; this header
// declares their parameters and results. `list profiles` and `profile details` call ensureActiveProfile() first, and
// continue if it fails.
#pragma once

#include <string>
#include <string_view>

#include "command/framework/CommandCore.h"
#include "profiles/store/ProfileControl.h"
#include "profiles/store/ProfileStore.h"
#include "service/host/SysImplParam.h"

// The details of a profile, rendered as "key=value" lines without a heading. An empty invitation and an empty Helmsor
// address are left out; other empty values are rendered. A record that was never filled renders nothing.
class ProfileDetailsResultField : public ResultParamBase {
 public:
  ProfileDetailsResultField() : ResultParamBase("details") {}
  void render(ValueBinder& sink) const override;
  void typeWord(std::string& word) const override { word = "profile-details"; }
  ProfileDetails& details() { return details_; }
  void clear() { details_ = ProfileDetails(); }

 private:
  ProfileDetails details_;
};

// list profiles, show profiles
class Hipcmd_GetProfiles : public RavctlCommandInstance {
 public:
  // Each profile is rendered as one line: its directory name, a tab, and its display name in single quotes.
  class ProfileListResultField : public ResultParamBase {
   public:
    ProfileListResultField() : ResultParamBase("_profiles") {}
    void render(ValueBinder& sink) const override;
    void typeWord(std::string& word) const override { word = "profile-list"; }
    ProfileListing listing;
  };

  Hipcmd_GetProfiles();
  void execute(StatusCodeResultField& status) override;

 private:
  ProfileListResultField profiles_;
  StringResult currentDir_{"current_dir"};  // set only in verbose mode, like rootDir_
  StringResult currentName_{"current_name"};
  StringResult rootDir_{"root_dir"};
};

// profile details SELECTOR
class Hipcmd_ShowProfile : public RavctlCommandInstance {
 public:
  explicit Hipcmd_ShowProfile(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
  ProfileDetailsResultField details_;
};

// profile create NAME helmsor=...
class Hipcmd_CreateProfile : public RavctlCommandInstance {
 public:
  explicit Hipcmd_CreateProfile(std::string_view name);
  void execute(StatusCodeResultField& status) override;

 private:
  StringParam newName_;
  BoolParam allowRename_{"allow_rename", Need::optional, true};
  HelmsorParam helmsor_{Need::required};
  OptionalNetworkParam network_;
  OptionalActivationParam invitation_;
  OptionalLogLevelParam logLevel_;  // accepted but deliberately not written
  SysImplParam sys_;
  SingleWordParam activate_{"activate"};
  ProfileDetailsResultField details_;
  StringResult profileName_{"profile_name"};
};
