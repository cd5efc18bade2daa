#!/bin/sh
# Says whose code the linker copied into the program: the Debian packages of the archives and start files that the link
# map names. cmake writes the map of ravctl beside the program.
set -eu
# shellcheck source=tools/common.sh
. "$(dirname "$0")/common.sh"

usage() {
  cat <<'TEXT'
Usage: sh tools/linked.sh packages MAP      a line for each package: its name, its version, the name
                                            and the version of its source package
       sh tools/linked.sh sources MAP       the source packages, as in the field Static-Built-Using
       sh tools/linked.sh spdx MAP PACKAGE  an SPDX 2.3 text about the .deb and what was linked in;
                                            SOURCE_DATE_EPOCH is its time
TEXT
}

# Prints the files of a map that are not of this build: those with an absolute path. A line "FILE(MEMBER)" is an archive
# whose member was taken. A line "LOAD FILE.o" is a start file. Archives from which nothing was taken are left out.
files() {
  sed -n '/^Discarded input sections$/q; s|^\(/[^(]*\)(.*|\1|p' "$1"
  sed -n 's|^LOAD \(/.*\.o\)$|\1|p' "$1"
}

packages() {
  files "$1" | sort -u | xargs -r realpath -- | sort -u | while IFS= read -r file; do
    owner=$(dpkg-query -S "$file") || die "no package owns $file, which is part of the program"
    # shellcheck disable=SC2016 # dpkg-query expands them
    dpkg-query -W -f '${Package} ${Version} ${source:Package} ${source:Version}\n' "${owner%%: *}"
  done >"$work/found" # a pipe would hide a failure
  [ -s "$work/found" ] || die "$1 names no file of a package"
  LC_ALL=C sort -u "$work/found"
}

sources() {
  packages "$1" >"$work/packages"
  awk '{ print $3 " (= " $4 ")" }' "$work/packages" | LC_ALL=C sort -u | paste -s -d , | sed 's/,/, /g'
}

# license_of SOURCE: the licence that the source package declares for its libraries.
license_of() {
  case $1 in
    glibc) say LGPL-2.1-or-later ;;
    gcc-[0-9]*) say 'GPL-3.0-or-later WITH GCC-exception-3.1' ;;
    *) say NOASSERTION ;;
  esac
}

field() { dpkg-deb -f "$package" "$1"; }

# purl NAME VERSION: the package URL of a package of Debian. Of the characters in names and versions it encodes only +.
purl() { say "pkg:deb/debian/$1@$2?arch=$architecture" | sed 's/+/%2B/g'; }

spdx() {
  map=$1 package=$2
  packages "$map" >"$work/packages"
  name=$(field Package) version=$(field Version) architecture=$(field Architecture)
  sum=$(sha256sum "$package" | cut -d ' ' -f 1)
  cat <<TEXT
SPDXVersion: SPDX-2.3
DataLicense: CC0-1.0
SPDXID: SPDXRef-DOCUMENT
DocumentName: ${name}_${version}_$architecture
DocumentNamespace: https://ravctl.example.org/spdx/${name}_${version}_$architecture-$sum
Creator: Organization: The ravctl developers
Creator: Tool: tools/linked.sh
Created: $(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%dT%H:%M:%SZ)

PackageName: $name
SPDXID: SPDXRef-$name
PackageVersion: $version
PackageFileName: $(basename "$package")
PackageSupplier: Organization: The ravctl developers
PackageDownloadLocation: NOASSERTION
FilesAnalyzed: false
PackageChecksum: SHA256: $sum
PackageLicenseConcluded: NOASSERTION
PackageLicenseDeclared: MIT
PackageCopyrightText: <text>2026 The ravctl developers</text>
PrimaryPackagePurpose: APPLICATION
Relationship: SPDXRef-DOCUMENT DESCRIBES SPDXRef-$name
TEXT
  while read -r linked its source of; do
    id=SPDXRef-$(say "$linked" | sed 's/[^A-Za-z0-9.-]/-/g')
    cat <<TEXT

PackageName: $linked
SPDXID: $id
PackageVersion: $its
PackageSupplier: Organization: Debian
PackageDownloadLocation: NOASSERTION
FilesAnalyzed: false
PackageSourceInfo: <text>built from $source $of</text>
PackageLicenseConcluded: NOASSERTION
PackageLicenseDeclared: $(license_of "$source")
PackageCopyrightText: NOASSERTION
PrimaryPackagePurpose: LIBRARY
ExternalRef: PACKAGE-MANAGER purl $(purl "$linked" "$its")
Relationship: SPDXRef-$name STATIC_LINK $id
TEXT
  done <"$work/packages"
}

if asks_for_help "$@"; then usage && exit; fi
case ${1-}:$# in packages:2 | sources:2 | spdx:3) ;; *) usage >&2 && exit 2 ;; esac
[ -r "$2" ] || die "$2 cannot be read"
work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
"$@"
