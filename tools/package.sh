#!/bin/sh
# Builds the packages and tests them. `./dev package` calls this script; it takes no words.
#
#   1. It builds Debian's package twice, in different folders, and compares the bytes.
#   2. It builds CPack's packages, installs with `cmake --install`, and compares the files.
#   3. A clean Debian in a folder installs, uses, upgrades and removes the package.
#
# Afterwards build/package/out holds the files to publish.
set -eu
cd "$(dirname "$0")/.."
. tools/common.sh

work=$PWD/build/package
out=$work/out
version=$(dpkg-parsechangelog -S Version)
architecture=$(dpkg --print-architecture)
package=ravctl_${version}_$architecture.deb
next=2.2-2~test
passed=0 failed=0 skipped=0

# verdict CLAIM COMMAND...: runs the command, and counts and prints if the claim holds.
verdict() {
  what=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
    say "passed: $what"
  else
    failed=$((failed + 1))
    say "FAILED: $what"
  fi
}

# copy_to FOLDER: copies the files of the checkout without the builds.
copy_to() {
  mkdir -p "$1"
  if git rev-parse >/dev/null 2>&1; then
    git ls-files -z -co --exclude-standard | tar -c --null -T - -f -
  else
    tar -c --exclude=./build --exclude=./.git -f - .
  fi | tar -x -C "$1" -f -
}

# build_package FOLDER [OPTION...]: builds the package of the tree in a folder. The package is put beside that folder.
build_package() (
  cd "$1" || exit 1
  shift
  DEB_BUILD_OPTIONS="parallel=$jobs" dpkg-buildpackage -us -uc -b "$@" >../build.log 2>&1 || {
    tail -n 40 ../build.log
    exit 1
  }
)

# paths FOLDER: prints the paths of the installed files below a folder. It takes the suffix .gz away and leaves out the
# files that only Debian's package has.
paths() (
  cd "$1" && find . ! -type d | sed 's/\.gz$//' | grep -v -e lintian -e changelog.Debian | LC_ALL=C sort
)

lintian_is_silent() {
  lintian --allow-root --pedantic --tag-display-limit 0 "$work/a/ravctl_${version}_$architecture.changes" >"$work/lintian.log" 2>&1
  ended=$?
  cat "$work/lintian.log"
  [ "$ended" -eq 0 ] && [ ! -s "$work/lintian.log" ]
}

ships_nothing_below_etc() { ! paths "$work/unpacked" | grep -E '^\./(etc|lib|var|usr/lib)/'; }

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

same_files() {
  paths "$1" >"$work/left"
  paths "$2" >"$work/right"
  diff "$work/left" "$work/right"
}

# upgraded FOLDER: builds the package of the same tree again as the next version, from the existing objects.
upgraded() {
  {
    printf 'ravctl (%s) unstable; urgency=medium\n\n  * For the test of an upgrade.\n\n' "$next"
    printf ' -- The ravctl developers <maintainers@ravctl.example.org>  Sun, 22 Nov 2026 12:00:00 +0000\n\n'
    cat debian/changelog
  } >"$1/debian/changelog"
  build_package "$1" -nc
}

cpack_packages() {
  cmake -S "$work/a/ravctl" -B "$work/cpack" -DCMAKE_BUILD_TYPE=Release -DRAVCTL_TESTS=OFF &&
    cmake --build "$work/cpack" --parallel "$jobs" &&
    (cd "$work/cpack" && cpack && cp -- *.deb *.tar.gz "$out" && cd "$out" && sha256sum -- *.deb *.tar.gz >SHA256SUMS)
} >"$work/cpack.log" 2>&1

cpack_holds_the_same() {
  mkdir -p "$work/from-tar"
  tar -x -z -f "$out"/*.tar.gz --strip-components=1 -C "$work/from-tar"
  dpkg -x "$work"/cpack/*.deb "$work/from-deb"
  DESTDIR=$work/from-install cmake --install "$work/cpack" --prefix /usr >/dev/null
  same_files "$work/from-deb" "$work/unpacked" && same_files "$work/from-tar" "$work/unpacked" &&
    same_files "$work/from-install" "$work/unpacked" && (cd "$out" && sha256sum --quiet -c SHA256SUMS)
}

# in_clean_root COMMAND: runs it in the clean Debian, in mount and process namespaces of its own.
in_clean_root() {
  unshare -m -p -f --kill-child chroot "$work/root" /bin/sh -ec "mount -t proc proc /proc; $1"
}

# A command that prints the whole state of the store.
store='{ find /etc/zuv -printf "%M %u %g %p %l %T@\n" | sort; find /etc/zuv -type f | sort | xargs sha256sum; }'

# skip_clean_root WHY: counts the three claims about the clean Debian as skipped.
skip_clean_root() {
  skipped=3
  say "Skipped: installation in a clean Debian; $1."
  [ -z "${RESULTS-}" ] || printf 'package:CleanDebian\t%s\n' "$1" >"$RESULTS/package.skipped"
}

make_clean_root() {
  debootstrap --variant=minbase bookworm "$work/root" >"$work/debootstrap.log" 2>&1 || {
    tail -n 5 "$work/debootstrap.log"
    return 1
  }
  cp "$work/a/$package" "$work/b/other/ravctl_${next}_$architecture.deb" "$work/root/tmp/"
}

installs_and_works() {
  in_clean_root "dpkg -i /tmp/$package >/dev/null; ! test -e /etc/zuv
    mkdir -p /etc/zuv/profiles/.factory
    echo 'openhip.log_level=INFO' >/etc/zuv/profiles/.factory/hip.conf
    ravctl list versions | grep -q '^ravctl_version: 2.2'
    ravctl profile create lab helmsor=h:443 | grep -qx 'profile_name: lab'
    ravctl profile create 'field office' helmsor=h --quiet
    ravctl list profiles | grep -q lab
    ravctl-exit profile details lab | grep -qx 'helmsor=h:443'
    if ravctl-exit profile details nowhere >/dev/null; then exit 1; fi
    ravctl-json profile details lab | grep -q '^{\"success\":true,'
    $store >/tmp/before"
}

upgrade_keeps_the_store() {
  in_clean_root "dpkg -i /tmp/ravctl_${next}_$architecture.deb >/dev/null
    dpkg-query -W ravctl | grep -q '$next'
    $store | cmp - /tmp/before
    ravctl profile details lab | grep -qx 'helmsor=h:443'
    $store | cmp - /tmp/before"
}

removal_keeps_the_store() {
  in_clean_root "dpkg -r ravctl >/dev/null; $store | cmp - /tmp/before
    dpkg -P ravctl >/dev/null 2>&1; $store | cmp - /tmp/before
    ! test -e /usr/bin/ravctl; ! test -e /usr/share/doc/ravctl"
}

rm -rf --one-file-system "$work"
mkdir -p "$out"
copy_to "$work/a/ravctl"
copy_to "$work/b/other/folder"
verdict 'the package builds' build_package "$work/a/ravctl"
[ "$failed" -eq 0 ] || exit 1
verdict 'it builds in another folder' build_package "$work/b/other/folder"
verdict 'both have the same bytes' cmp "$work/a/$package" "$work/b/other/$package"
verdict 'lintian finds nothing' lintian_is_silent
dpkg -x "$work/a/$package" "$work/unpacked"
verdict 'nothing of it lies below /etc or starts a service' ships_nothing_below_etc
verdict 'every program has a manual' every_program_has_its_manual
verdict 'the scripts have the completions of ravctl' scripts_have_completions
verdict 'the next version builds' upgraded "$work/b/other/folder"
verdict 'CPack makes a package and an archive' cpack_packages
verdict 'they, and cmake --install, hold the same files' cpack_holds_the_same
cp "$work/a/$package" "$out/"
if [ "$(id -u)" != 0 ]; then
  skip_clean_root 'only root can make a clean Debian'
elif ! make_clean_root; then
  skip_clean_root 'debootstrap cannot fetch a clean Debian here'
else
  verdict 'it installs the package, and ravctl works there' installs_and_works
  verdict 'an upgrade leaves every profile as it was' upgrade_keeps_the_store
  verdict 'removal leaves every profile as it was' removal_keeps_the_store
fi
rm -rf --one-file-system "$work/root"
[ -z "${RESULTS-}" ] || say "$passed $failed $skipped" >"$RESULTS/package.count"
say "In build/package/out:" && ls -l "$out"
say "$passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
