#include "profiles/store/ProfileControl.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/files/CopyFile.h"
#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileAccess.h"
#include "base/files/FileInfo.h"
#include "base/files/FilePlace.h"
#include "base/text/StringUtils.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "command/status/FirstFailure.h"
#include "log/front/BasicLog.h"
#include "profiles/store/ConfigLines.h"
#include "profiles/store/ProfileStore.h"
#include "profiles/store/ProfileTexts.h"
#include "service/host/SystemSpecificImpl.h"

using StringUtils::hasControlByte;
using StringUtils::joinPath;

namespace {

constexpr mode_t directoryMode = 0755;

void logNoNetworks() {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::ravctlLogger);
  if (log.isEnabled(BasicLog::Level::error)) {
    BasicLog::Entry entry(log, BasicLog::Level::error, "could not execute read_networks", "ProfileControl.cpp",
                          "cmdGetProfileDetails");
  }
}

}  // namespace

// --- Details

namespace ProfileControl {

Status cmdGetProfileDetails(const std::string& selector, ProfileDetails& details) {
  details = ProfileDetails();
  ProfileRecord profile;
  Status found = ProfileStore::resolveSelector(selector, profile);
  if (!found.isSuccess()) return found;
  details.filled = true;
  details.dirname = profile.dirname;
  details.name = profile.name;
  // A value that is not found stays empty.
  (void)ConfigControl::readInterface(profile.dirname, details.network);
  if (!ConfigControl::read_networks(details.networks)) logNoNetworks();
  (void)ConfigControl::readDeviceId(profile.dirname, details.deviceId);
  (void)ConfigControl::readDeviceIp(profile.dirname, details.overlayDeviceIp);
  (void)ConfigControl::readDeviceMask(profile.dirname, details.overlayMask);
  (void)ConfigControl::readInvitation(profile.dirname, details.invitation);
  (void)ConfigControl::readHelmsor(profile.dirname, details.helmsor);
  (void)ConfigControl::readLogLevel(profile.dirname, details.logLevel);
  return found;
}

}  // namespace ProfileControl

// --- Create

namespace {

// Returns true for a path that is certainly neither a regular file nor a link to one, and for a link that is not to be
// trusted. If stat fails for another reason, returns false, so that the copy reports the failure.
bool isPassedOver(const std::string& path) {
  if (leadsOverUntrustedLink(path))
    return true;  // first, because its owner may have chosen a target that stat fails for
  struct stat info = {};
  if (::stat(path.c_str(), &info) == 0) return !S_ISREG(info.st_mode);
  return errno == ENOENT || errno == ENOTDIR || errno == ELOOP || errno == ENAMETOOLONG;
}

// Copies every regular file of a directory and every trusted link in it whose target is one. A missing directory counts
// as empty.
Status copyFilesOf(const std::string& from, const std::string& to) {
  const UniqueFd directory = FileUtils::openDirectory(from);
  if (!directory.isOpen()) return Status::of(errno == ENOENT ? status::success : status::opendirError);
  const FileUtils::DirectoryListing listing = FileUtils::listOpenDirectory(directory.get());
  if (!listing.status.isSuccess()) return listing.status;
  // Every link is resolved again by its full path, because the listing resolves relative ones from the working
  // directory.
  for (const std::vector<std::string>* names :
       {&listing.files, &listing.linksToFiles, &listing.linksToDirectories, &listing.others}) {
    for (const std::string& name : *names) {
      const std::string source = joinPath({from, name});
      if (names != &listing.files && isPassedOver(source)) continue;
      Status copied = FileUtils::copyStoreFile(source, joinPath({to, name}));
      if (!copied.isSuccess()) return copied;
    }
  }
  return Status();
}

void copyCertificates(const std::string& profileDir) {
  const std::string to = joinPath({profileDir, ProfileStore::certificatesDir});
  // Failures are dropped: a profile without certificates is usable, and the daemon reports what it lacks.
  (void)FileUtils::makeDir(to, directoryMode);
  (void)FileUtils::setMode(to + '/', directoryMode);  // the slash makes this fail for a regular file
  (void)copyFilesOf(joinPath({ProfileStore::factoryDir(), ProfileStore::certificatesDir}), to);
}

// Writes everything that a profile needs to be usable: template, name, certificates and Helmsor address.
Status fillDirectory(const NewProfile& wanted, const std::string& name, const std::string& dir,
                     const std::string& dirname) {
  Status copied = copyFilesOf(ProfileStore::factoryDir(), dir);
  if (!copied.isSuccess()) return copied;
  Status named = ProfileStore::writeProfileName(dirname, name);
  if (!named.isSuccess()) return named;
  copyCertificates(dir);
  return ConfigControl::writeNewHelmsor(dirname, wanted.helmsorHost, wanted.helmsorPort);
}

Status configure(const NewProfile& wanted, const std::string& dirname) {
  Status first;
  if (!wanted.network.empty()) keepFirstFailure(first, ConfigControl::setInterface(dirname, wanted.network));
  keepFirstFailure(first, ConfigControl::setInvitation(dirname, wanted.invitation));
  return first;
}

// Returns true if it has tried to start the daemon.
bool makeActiveAndStart(const NewProfile& wanted, const std::string& dirname, Status& first) {
  const bool isActive = ProfileStore::setActive(dirname);
  if (!isActive) keepFirstFailure(first, Status::of(status::applicationError));
  if (!isActive && wanted.startsOnlyIfActive) return false;
  keepFirstFailure(first, runBackendOperation(wanted.initSystem, &SystemSpecificImpl::start));
  return true;
}

// Makes a profile's directory the working directory. A failure is ignored, since all our own paths are absolute.
void workIn(const std::string& dir) { [[maybe_unused]] const int result = chdir(dir.c_str()); }

}  // namespace

namespace ProfileControl {

// The order of steps, and what a failure of each leaves behind:
//   1. check the texts                               nothing
//   2. create a numbered directory                   nothing
//   3. choose a free name                            the empty directory; the next listing gives it a name
//   4. stop the daemon, if activation is requested   a failure is dropped
//   5. write template, name and Helmsor address      the directory with the files written so far; the operation ends
//   6. write interface and invitation                the profile without them; the next steps still follow
//   7. look whether the directory is still there     nothing, because another process has deleted it
//   8. make the profile active                       the profile; the daemon is started nevertheless, unless
//                                                    startsOnlyIfActive
//   9. start the daemon                              the profile
Status createProfile(const NewProfile& wanted, CreatedProfile& made) {
  ConfigLines::EditLimit limit;
  made = CreatedProfile();
  if (!isAuthorized()) return Status::of(status::authenticationError);
  const std::string wish = ProfileTexts::cleanName(wanted.name);
  if (hasControlByte(wish)) return Status::error(status::invalidArgument, "invalid profile name", "profile create");
  Status checked = ProfileTexts::checkTexts(wanted.helmsorHost, wanted.network, wanted.invitation);
  if (!checked.isSuccess()) return checked;
  std::string dir;
  std::string dirname;
  std::string name;
  if (!ProfileStore::newProfileDirectory(dir, dirname) ||
      !ProfileStore::chooseNewName(wish, wanted.allowRename, dirname, name)) {
    return Status::of(status::applicationError);
  }
  const UniqueFd directory = FileUtils::openDirectory(dir);
  if (wanted.activate && ProfileStore::daemonMayRun()) {
    // A failed stop is deliberately not reported: the status is that of making the profile and of the start.
    (void)runBackendOperation(wanted.initSystem, &SystemSpecificImpl::stop);
  }
  Status filled = fillDirectory(wanted, name, dir, dirname);
  if (!filled.isSuccess()) return filled;
  Status first = configure(wanted, dirname);
  if (placeOf(directory.get(), AT_FDCWD, dir.c_str()) == Place::another) {
    keepFirstFailure(first, Status::of(status::applicationError));
    return first;
  }
  if (wanted.activate) made.isStartTried = makeActiveAndStart(wanted, dirname, first);
  if (first.isSuccess()) {
    made.name = name;
    // Selects by directory, because another process may have assigned the same name. A failure is dropped: the profile
    // exists either way.
    (void)cmdGetProfileDetails(StringUtils::concatenate({ProfileStore::dirPrefix, dirname}), made.details);
  }
  return first;
}

// --- Electing

bool isActiveDirectoryMissing() {
  ProfileRecord active;
  return ProfileStore::readActiveRecord(active) && !FileUtils::isDirectory(active.dir);
}

namespace {

// Makes `wanted` only if there is no profile to elect.
Status elect(const NewProfile& wanted, CreatedProfile& made) {
  made = CreatedProfile();
  std::string dirname;
  std::string file;
  std::string dir;
  if (ProfileStore::readActiveDirname(dirname) &&
      ProfileStore::fileInProfile(dirname, ProfileStore::hipConfFile, file) && FileUtils::isRegularFile(file)) {
    (void)ProfileStore::profileDir(dirname, dir);  // can't fail: the file has a path
    workIn(dir);
    return Status();
  }
  std::vector<ProfileRecord> profiles;
  if (ProfileStore::listProfiles(profiles) && !profiles.empty()) {
    const ProfileRecord& first = profiles.front();
    if (!ProfileStore::setActive(first.dirname)) return Status::of(status::applicationError);
    workIn(first.dir);
    return Status();
  }
  return createProfile(wanted, made);
}

NewProfile firstProfile(const std::string& initSystem) {
  NewProfile wanted;
  wanted.initSystem = initSystem;
  wanted.activate = true;
  return wanted;
}

}  // namespace

Status ensureActiveProfile() {
  CreatedProfile made;
  return elect(firstProfile(backendNameOrNull()), made);
}

Status ensureActiveProfile(const std::string& initSystem, CreatedProfile& made) {
  NewProfile wanted = firstProfile(initSystem);
  wanted.startsOnlyIfActive = true;
  return elect(wanted, made);
}

}  // namespace ProfileControl
