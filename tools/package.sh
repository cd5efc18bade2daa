#!/bin/sh
# Builds the packages and tests them. `./dev package` calls this script.
#
#   1. It makes the archive of the sources and Debian's source package, and builds the package twice from them, in
#      different folders.
#   2. CPack makes an archive of the installed files, and rpmbuild an RPM.
#   3. A clean Debian in a folder runs the tests of debian/tests, and installs, uses, upgrades and removes both packages.
#
# Afterwards build/package/out holds the files to publish.
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

usage() { say 'Usage: sh tools/package.sh [--brief]    (--brief: the RPM is built once, not twice)'; }

if asks_for_help "$@"; then usage && exit; fi
case ${1-}:$# in :0 | --brief:1) ;; *) usage >&2 && exit 2 ;; esac
brief=${1-}

work=$PWD/build/package
out=$work/out
version=$(dpkg-parsechangelog -S Version)
upstream=${version%-*}
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -S Timestamp)
export SOURCE_DATE_EPOCH
architecture=$(dpkg --print-architecture)
package=ravctl_${version}_$architecture.deb
symbols=ravctl-dbgsym_${version}_$architecture.deb
linked=ravctl_${version}_$architecture.spdx
next=$upstream-2~test
passed=0 failed=0 skipped=0

# verdict CLAIM COMMAND...: runs the command, and counts and prints if the claim holds. The shell ignores `set -e` in the
# command, so a function chains its steps with &&.
verdict() {
  what=$1
  shift
  holds=yes
  "$@" || holds=no
  if [ "$holds" = yes ]; then
    passed=$((passed + 1))
    say "passed: $what"
  else
    failed=$((failed + 1))
    say "FAILED: $what"
  fi
}

# needed CLAIM COMMAND...: as verdict, but the script ends if the claim does not hold.
needed() {
  verdict "$@"
  [ "$holds" = yes ] || exit 1
}

# logged NAME COMMAND...: runs it with its output in a file, and shows the end of the file if it fails.
logged() {
  log=$work/$1.log
  shift
  "$@" >"$log" 2>&1 || { tail -n 40 "$log" && false; }
}

# The checkout may belong to another user than the one who packs it.
git() { command git -c safe.directory="$PWD" "$@"; }

# copy_to FOLDER: copies the files of the checkout without the builds.
copy_to() {
  mkdir -p "$1"
  if git rev-parse >/dev/null 2>&1; then
    git ls-files -z -co --exclude-standard | tar -c --null -T - -f -
  else
    tar -c --exclude=./build --exclude=./.git -f - .
  fi | tar -x -C "$1" -f -
}

# ---- Sources ----

one_version() {
  [ "$(sed -n 's/^project(ravctl VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)" = "$upstream" ] &&
    [ "$(sed -n 's/^Version: *//p' packaging/ravctl.spec)" = "$upstream" ]
}

# source_archive FOLDER ARCHIVE: archives the copy of the sources in a folder, without debian/. The bytes of the archive
# depend on the files alone.
source_archive() {
  tar -C "$1" -c --sort=name --format=gnu --owner=0 --group=0 --numeric-owner --mode=u+rwX,go=rX \
    --mtime="@$SOURCE_DATE_EPOCH" --exclude="ravctl-$upstream/debian" "ravctl-$upstream" >"$work/source.tar" &&
    xz -T1 -c "$work/source.tar" >"$2"
}

source_package() {
  cp "$out/ravctl_$upstream.orig.tar.xz" "$work/source/" &&
    (cd "$work/source/ravctl-$upstream" && dpkg-buildpackage -us -uc -S) &&
    unpack_source "$work/a/ravctl" && unpack_source "$work/b/other/folder"
}

# unpack_source FOLDER
unpack_source() {
  mkdir -p "$(dirname "$1")" && dpkg-source --no-check -x "$work/source/ravctl_$version.dsc" "$1"
}

sources_are_the_checkout() {
  copy_to "$work/checkout/ravctl-$upstream" && diff -r -x .pc "$work/checkout/ravctl-$upstream" "$work/a/ravctl"
}

# Archives a copy whose files have other times, and modes that allow less to others.
same_source_archive() {
  chmod -R go= "$work/checkout" && find "$work/checkout" -exec touch {} + &&
    source_archive "$work/checkout" "$work/again.tar.xz" && cmp "$work/again.tar.xz" "$out/ravctl_$upstream.orig.tar.xz"
}

# ---- Debian's package ----

# build_package FOLDER [OPTION...]: builds the package of the tree in a folder. The package is put beside that folder.
build_package() (
  cd "$1" || exit 1
  shift
  DEB_BUILD_OPTIONS="parallel=$jobs" dpkg-buildpackage -us -uc -b "$@"
)

# paths FOLDER: prints the paths of the installed files below a folder. It takes the suffix .gz away and leaves out the
# files that only one kind of package has: Debian's changelog, the licence that RPM keeps in a folder of its own, links
# to the program by its build ID. The folder of zsh gets the name that Debian gives it.
paths() (
  cd "$1" && find . ! -type d | sed 's/\.gz$//; s|/zsh/site-functions/|/zsh/vendor-completions/|' |
    grep -v -e lintian -e changelog.Debian -e /doc/ravctl/copyright -e /licenses/ -e /lib/.build-id/ | LC_ALL=C sort
)

lintian_is_silent() {
  lintian --allow-root --display-info --pedantic --tag-display-limit 0 "$work/a/ravctl_${version}_$architecture.changes" \
    "$work/source/ravctl_${version}_source.changes" >"$work/lintian.log" 2>&1
  ended=$?
  cat "$work/lintian.log"
  [ "$ended" -eq 0 ] && [ ! -s "$work/lintian.log" ]
}

# Services are below /lib or /usr/lib. A script of the package that could start one would be beside the file `control`.
no_file_below_etc_and_no_service() {
  paths "$work/unpacked" >"$work/paths" && grep -qx ./usr/bin/ravctl "$work/paths" &&
    ! grep -E '^\./(etc|lib|var|usr/lib)/' "$work/paths" &&
    [ "$(dpkg-deb --ctrl-tarfile "$out/$package" | tar -t | sort | paste -s -d ' ')" = './ ./control ./md5sums' ]
}

every_program_has_its_manual() (
  cd "$work/unpacked/usr" || exit 1
  for program in bin/*; do
    [ -f "share/man/man8/${program#bin/}.8.gz" ] || { say "no manual: $program" && exit 1; }
  done
)

# bash and fish find the same completion under the name of each script that takes the words of ravctl.
scripts_have_completions() (
  cd "$work/unpacked/usr/share" || exit 1
  for script in ravctl-exit ravctl-json; do
    cmp "bash-completion/completions/$script" bash-completion/completions/ravctl &&
      cmp "fish/vendor_completions.d/$script.fish" fish/vendor_completions.d/ravctl.fish || exit 1
  done
)

# The package of debug symbols is of exactly this program, which has the name of its file in it.
symbols_fit() {
  id=$(readelf -n "$work/unpacked/usr/bin/ravctl" | sed -n 's/.*Build ID: //p') && [ -n "$id" ] &&
    dpkg -x "$out/$symbols" "$work/symbols" &&
    readelf -S -W "$work/symbols/usr/lib/debug/.build-id/$(say "$id" | sed 's|^..|&/|').debug" | grep -q ' \.z*debug_info '
}

# upgraded FOLDER: builds the package of the same tree again as the next version, from the existing objects.
upgraded() {
  {
    printf 'ravctl (%s) unstable; urgency=medium\n\n  * For the test of an upgrade.\n\n' "$next"
    printf ' -- The ravctl developers <maintainers@ravctl.example.org>  Sun, 22 Nov 2026 12:00:00 +0000\n\n'
    cat debian/changelog
  } >"$1/debian/changelog" && build_package "$1" -nc
}

# ---- What is linked in ----

# Prints "NAME VERSION SOURCE (= VERSION)" for the packages of the libraries with which the compiler links, as dpkg says.
linked_libraries() {
  for library in libstdc++.a libgcc_eh.a libc.a; do
    owner=$(dpkg-query -S "$(realpath "$(g++ -print-file-name="$library")")") || return 1
    # shellcheck disable=SC2016 # dpkg-query expands them
    dpkg-query -W -f '${Package} ${Version} ${source:Package} (= ${source:Version})\n' "${owner%%: *}"
  done | sort
}

# names_what_is_linked FIELD: the value of Static-Built-Using has each source of these packages once.
names_what_is_linked() {
  [ "$(say "$1" | sed 's/, /\n/g')" = "$(linked_libraries | cut -d ' ' -f 3- | LC_ALL=C sort -u)" ]
}

# spdx_is_true FILE: it names exactly these packages, with the versions of dpkg and with package URLs that encode + as
# %2B, and the checksum of our package.
spdx_is_true() {
  [ "$(head -n 1 "$1")" = 'SPDXVersion: SPDX-2.3' ] &&
    [ "$(awk '/^PackageName: / { name = $2 } /^PackageVersion: / { print name, $2 }' "$1" | sort)" = \
      "$({ say "ravctl $version" && linked_libraries | cut -d ' ' -f 1,2; } | sort -u)" ] &&
    ! grep '^ExternalRef: .*+' "$1" &&
    [ "$(sed -n 's/%2B/+/g; s/^ExternalRef: PACKAGE-MANAGER purl //p' "$1" | sort)" = \
      "$(linked_libraries | sed "s|\([^ ]*\) \([^ ]*\) .*|pkg:deb/debian/\1@\2?arch=$architecture|" | sort -u)" ] &&
    grep -qx "PackageChecksum: SHA256: $(sha256sum "$out/$package" | cut -d ' ' -f 1)" "$1" &&
    [ "$(grep -c '^Relationship: SPDXRef-ravctl STATIC_LINK ' "$1")" = "$(linked_libraries | sort -u | wc -l)" ]
}

a_wrong_version_is_noticed() {
  sed '/^PackageName: libc6/,/^PackageVersion/ s/^\(PackageVersion: 2\.\)/\19/' "$out/$linked" >"$work/wrong.spdx"
  ! cmp -s "$out/$linked" "$work/wrong.spdx" && ! spdx_is_true "$work/wrong.spdx" &&
    ! names_what_is_linked "$(dpkg-deb -f "$out/$package" Static-Built-Using | sed 's/= 2\./&9/')"
}

# ---- The archive and the RPM ----

# Without words CPack packs what debhelper built into one archive, and makes no package.
archive() {
  (cd "$1"/obj-* && cpack -B "$2") &&
    [ "$(find "$2" -maxdepth 1 -type f -printf '%f\n')" = "ravctl-$upstream-Linux-$(uname -m).tar.gz" ]
}

# build_rpm TOP RECIPE [OPTION...]: builds the RPM below a folder of its own.
build_rpm() {
  top=$1 recipe=$2
  shift 2
  mkdir -p "$top/SOURCES" "$top/tmp" && cp "$out/ravctl_$upstream.orig.tar.xz" "$top/SOURCES/ravctl-$upstream.tar.xz" &&
    cp "$recipe" "$top/ravctl.spec" && touch -d "@$SOURCE_DATE_EPOCH" "$top/ravctl.spec" "$top"/SOURCES/* &&
    rpmbuild --nodeps --noclean -D "_topdir $top" -D "_tmppath $top/tmp" -D "_dbpath $top/db" \
      -D '_buildhost localhost' \
      -D 'packager The ravctl developers <maintainers@ravctl.example.org>' \
      -D 'use_source_date_epoch_as_buildtime 1' -D 'clamp_mtime_to_source_date_epoch 1' "$@" "$top/ravctl.spec"
}

# The same recipe as the next release, from the existing objects.
upgraded_rpm() {
  sed 's/^Release:.*/Release: 2/' packaging/ravctl.spec >"$work/next.spec" && build_rpm "$work/rpm" "$work/next.spec" -bb --noprep
}

rpmlint_is_silent() {
  HOME=$work rpmlint -c packaging/rpmlint.toml packaging/ravctl.spec "$out"/*.rpm >"$work/rpmlint.log" 2>&1
  ended=$?
  cat "$work/rpmlint.log"
  [ "$ended" -eq 0 ] && grep -q '2 packages and 1 specfiles checked; 0 errors, 0 warnings' "$work/rpmlint.log"
}

# Prints what an RPM holds. Its header also holds the path of the build.
contents_of_rpm() {
  rpm --dbpath "$work/rpm/db" -qp "$1" \
    --qf '%{buildtime} %{payloaddigest}\n[%{filenames} %{filemodes:octal} %{filemtimes} %{filedigests}\n]'
}

same_rpm_elsewhere() {
  logged rpm-again build_rpm "$work/rpm-again/other" packaging/ravctl.spec -ba &&
    contents_of_rpm "$out/$rpm" >"$work/rpm-contents" && grep -q /usr/bin/ravctl "$work/rpm-contents" &&
    contents_of_rpm "$work"/rpm-again/other/RPMS/*/"$rpm" | cmp - "$work/rpm-contents"
}

same_files() {
  paths "$1" >"$work/left" && paths "$2" >"$work/right" && diff "$work/left" "$work/right"
}

# same_program FOLDER: the program below it has the bytes of that in Debian's package, but for notes and the link to the
# debug symbols.
same_program() {
  for folder in "$1" "$work/unpacked"; do
    strip -R .comment -R .note -R .gnu_debuglink -o "$folder.stripped" "$folder/usr/bin/ravctl" || return 1
  done
  cmp "$1.stripped" "$work/unpacked.stripped"
}

all_hold_the_same() {
  mkdir -p "$work/from-tar" "$work/from-rpm" &&
    tar -x -z -f "$out/$archive" --strip-components=1 -C "$work/from-tar" &&
    HOME=$work rpm2archive -n <"$out/$rpm" | tar -x -C "$work/from-rpm" &&
    DESTDIR=$work/from-install cmake --install "$work"/a/ravctl/obj-* --prefix /usr >/dev/null &&
    same_files "$work/from-tar" "$work/unpacked" && same_files "$work/from-rpm" "$work/unpacked" &&
    same_files "$work/from-install" "$work/unpacked" &&
    same_program "$work/from-tar" && same_program "$work/from-install"
}

# ---- The files to publish ----

# sums_of FILE: prints the lines of the sums in a .changes file as sha256sum writes them.
sums_of() { awk '/^[^ ]/ { on = /^Checksums-Sha256:/ } on && NF == 3 { print $1 "  " $3 }' "$1"; }

publish() {
  for changes in "$work/source/ravctl_${version}_source.changes" "$work/a/ravctl_${version}_$architecture.changes"; do
    cp "$changes" "$out/" || return 1
    for file in $(sums_of "$changes" | cut -c 67-); do
      cp "$(dirname "$changes")/$file" "$out/" || return 1
    done
  done
}

changes_are_whole() (
  cd "$out" || exit 1
  for changes in *.changes; do
    sums_of "$changes" | sha256sum --quiet --strict -c - || exit 1
  done
  for file in "$package" "$symbols" "ravctl_${version}_$architecture.buildinfo" "ravctl_$version.dsc" \
    "ravctl_$upstream.orig.tar.xz"; do
    grep -qF " $file" ./*.changes || { say "no .changes names $file" && exit 1; }
  done
)

one_package_of_debian() { [ "$(cd "$out" && echo ./*.deb)" = "./$symbols ./$package" ]; }

sum_up() { (cd "$out" && sha256sum -- * >"$work/SHA256SUMS" && cp "$work/SHA256SUMS" .); }

sums_cover_everything() (
  cd "$out" && sha256sum --quiet --strict -c SHA256SUMS &&
    [ "$(cut -c 67- SHA256SUMS | sort)" = "$(find . -type f ! -name SHA256SUMS | sed 's|^\./||' | sort)" ]
)

# ---- A clean Debian ----

# in_clean_root COMMAND: runs it in the clean Debian, in mount and process namespaces of its own. The shell ignores a
# failed `! COMMAND` despite -e, so the command uses absent PATH... instead.
in_clean_root() {
  unshare -m -p -f --kill-child chroot "$work/root" /bin/sh -ec "mount -t proc proc /proc
    absent() { for path; do if [ -e \"\$path\" ] || [ -L \"\$path\" ]; then echo \"exists: \$path\" && exit 1; fi; done; }
    $1"
}

# A command that prints the whole state of the store.
store='{ find /etc/zuv -printf "%M %u %g %p %l %T@\n" | sort; find /etc/zuv -type f | sort | xargs sha256sum; }'

# Commands that use what is installed: they make a store, and leave its state in /tmp/before.
using="mkdir -p /etc/zuv/profiles/.factory
  echo 'openhip.log_level=INFO' >/etc/zuv/profiles/.factory/hip.conf
  ravctl list versions | grep -qx 'ravctl_version: $upstream'
  ravctl profile create lab helmsor=h:443 | grep -qx 'profile_name: lab'
  ravctl profile create 'field office' helmsor=h --quiet >/dev/null
  ravctl list profiles | grep -q lab
  ravctl-exit profile details lab | grep -qx 'helmsor=h:443'
  if ravctl-exit profile details nowhere >/dev/null; then exit 1; fi
  ravctl-json profile details lab | grep -q '^{\"success\":true,'
  $store >/tmp/before"

# Commands that check that the store is still as it was.
unchanged="$store | cmp - /tmp/before
  ravctl profile details lab | grep -qx 'helmsor=h:443'
  $store | cmp - /tmp/before"

gone='absent /usr/bin/ravctl /usr/bin/check_ravctl /usr/bin/ravctl-exit /usr/bin/ravctl-json /usr/share/doc/ravctl \
  /usr/share/man/man8/ravctl.8.gz /usr/share/licenses/ravctl-*'

# skip_clean_root WHY: counts the claims about the clean Debian as skipped.
skip_clean_root() {
  skipped=8
  say "Skipped: installation in a clean Debian; $1."
  [ -z "${RESULTS-}" ] || printf 'package:CleanDebian\t%s\n' "$1" >"$RESULTS/package.skipped"
}

# The tool of autopkgtest that makes a repository of the package is in apt-utils.
make_clean_root() {
  logged debootstrap debootstrap --variant=minbase --include=apt-utils bookworm "$work/root" &&
    cp "$out/$package" "$work/b/other/ravctl_${next}_$architecture.deb" "$out/$archive" "$work/root/tmp/"
}

# Runs the tests of debian/tests as Debian does. It fails if a test is skipped.
# shellcheck disable=SC2016 # the inner shell expands them
autopkgtests_pass() {
  unpack_source "$work/tested" >/dev/null &&
    logged autopkgtest unshare -m -p -f --kill-child --mount-proc sh -ec 'mount -t proc proc "$1/root/proc"
      exec autopkgtest --no-built-binaries --output-dir "$1/autopkgtest" "$2" "$1/tested/" -- chroot "$1/root"' \
      sh "$work" "$out/$package" &&
    [ "$(grep -c ' PASS$' "$work/autopkgtest/summary")" = 3 ] &&
    in_clean_root "dpkg -P ravctl >/dev/null 2>&1; $gone; absent /etc/zuv"
}

installs_and_works() { in_clean_root "dpkg -i /tmp/$package >/dev/null; absent /etc/zuv; $using"; }

upgrade_keeps_the_store() {
  in_clean_root "dpkg -i /tmp/ravctl_${next}_$architecture.deb >/dev/null
    dpkg-query -W ravctl | grep -q '$next'
    $unchanged"
}

removal_keeps_the_store() {
  in_clean_root "dpkg -r ravctl >/dev/null; $store | cmp - /tmp/before
    dpkg -P ravctl >/dev/null 2>&1; $store | cmp - /tmp/before
    $gone; find /etc/zuv -delete"
}

# The clean Debian has no RPM that could provide what the package needs, a shell.
in_root_rpm() { rpm --force-debian --root "$work/root" --dbpath /var/lib/rpm "$@"; }

rpm_installs_and_works() { in_root_rpm -i --nodeps "$out/$rpm" && in_clean_root "absent /etc/zuv; $using"; }

rpm_upgrade_keeps_the_store() {
  in_root_rpm -U --nodeps "$(find "$work/rpm/RPMS" -name 'ravctl-*-2.*.rpm')" &&
    [ "$(in_root_rpm -q ravctl --qf '%{release}')" = 2 ] && in_clean_root "$unchanged"
}

rpm_removal_keeps_the_store() {
  in_root_rpm -e ravctl && in_clean_root "$store | cmp - /tmp/before; $gone; find /etc/zuv -delete"
}

archive_works() {
  in_clean_root "tar -x -z -f /tmp/$archive --strip-components=1 -C /; absent /etc/zuv; $using"
}

rm -rf --one-file-system "$work"
mkdir -p "$out"
copy_to "$work/source/ravctl-$upstream"
verdict 'all recipes name the same version' one_version
needed 'the archive of the sources is made' source_archive "$work/source" "$out/ravctl_$upstream.orig.tar.xz"
needed 'the source package builds' logged source source_package
verdict 'it holds the files of the checkout' sources_are_the_checkout
verdict 'another copy of the sources makes an archive with the same bytes' same_source_archive
needed 'the package builds from it' logged build-a build_package "$work/a/ravctl"
needed 'it builds in another folder' logged build-b build_package "$work/b/other/folder"
needed 'the files to publish are copied' publish
verdict 'both builds have the same bytes' cmp "$work/a/$package" "$work/b/other/$package"
verdict 'lintian finds nothing in the source package and the package' lintian_is_silent
dpkg -x "$work/a/$package" "$work/unpacked"
verdict 'the package has no file below /etc and starts no service' no_file_below_etc_and_no_service
verdict 'every program has a manual' every_program_has_its_manual
verdict 'the scripts have the completions of ravctl' scripts_have_completions
verdict 'the debug symbols are those of the program' symbols_fit
verdict 'Static-Built-Using names the sources of what is linked in' \
  names_what_is_linked "$(dpkg-deb -f "$out/$package" Static-Built-Using)"
sh tools/linked.sh spdx "$work"/a/ravctl/obj-*/ravctl.map "$out/$package" >"$out/$linked" || failed=$((failed + 1))
verdict 'the SPDX text names what is linked in, with the versions of dpkg' spdx_is_true "$out/$linked"
verdict 'these checks of Static-Built-Using and of the SPDX text notice a wrong version' a_wrong_version_is_noticed
verdict 'CPack makes an archive and nothing else' logged cpack archive "$work/a/ravctl" "$work/cpack"
archive=$(cd "$work/cpack" && echo ravctl-*.tar.gz)
cp "$work/cpack/$archive" "$out/"
needed 'rpmbuild makes an RPM and its source' logged rpm build_rpm "$work/rpm" packaging/ravctl.spec -ba
rpm=$(cd "$work"/rpm/RPMS/* && echo ravctl-*.rpm)
cp "$work"/rpm/RPMS/*/*.rpm "$work"/rpm/SRPMS/*.rpm "$out/"
verdict 'rpmlint finds nothing' rpmlint_is_silent
verdict 'package, archive, RPM and cmake --install hold the same files' all_hold_the_same
[ -n "$brief" ] || verdict 'the RPM holds the same bytes if it is built in another folder' same_rpm_elsewhere
sum_up
verdict 'every file that a .changes names was published, with its sum' changes_are_whole
verdict 'one package of Debian was published, with its debug symbols' one_package_of_debian
verdict 'SHA256SUMS covers everything' sums_cover_everything
needed 'the next version builds' logged next upgraded "$work/b/other/folder"
needed 'the next RPM builds' logged next-rpm upgraded_rpm
if [ "$(id -u)" != 0 ]; then
  skip_clean_root 'only root can make a clean Debian'
elif ! make_clean_root; then
  skip_clean_root 'debootstrap cannot fetch a clean Debian here'
else
  verdict 'the tests of debian/tests pass in a clean Debian' autopkgtests_pass
  verdict 'it installs the package, and ravctl works there' installs_and_works
  verdict 'an upgrade leaves every profile as it was' upgrade_keeps_the_store
  verdict 'removal leaves every profile as it was' removal_keeps_the_store
  verdict 'the RPM installs, and ravctl works there' rpm_installs_and_works
  verdict 'an upgrade of the RPM leaves every profile as it was' rpm_upgrade_keeps_the_store
  verdict 'removal of the RPM leaves every profile as it was' rpm_removal_keeps_the_store
  verdict 'the archive works where it is unpacked' archive_works
fi
rm -rf --one-file-system "$work/root"
[ -z "${RESULTS-}" ] || say "$passed $failed $skipped" >"$RESULTS/package.count"
say "In build/package/out:" && ls -l "$out"
say "$passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
