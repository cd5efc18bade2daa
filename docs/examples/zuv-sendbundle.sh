#!/bin/sh
# zuv-sendbundle.sh: packs the files that help to find a problem of the daemon. Installed as /usr/bin/zuv-sendbundle.sh
# it is the script that `ravctl support bundle` runs, as root and without words.
#
# The bundle is a new file /etc/zuv/logs/bundle-TIME.tar.gz with mode 0600. The script prints its path. It holds
# - of each profile and of the template: name, configuration, heartbeat and the end of the log
# - of the host: versions, interfaces and a list of the files of the store
#
# It leaves out
# - certificates and the state files of the daemon, because they hold keys
# - the values of keys whose names sound like a secret
# - every invitation, in any file
# - private keys in PEM form
#
# The script follows no links and changes nothing else on the host: it runs no command of ravctl that could name a
# profile or make one active.
set -eu
umask 077
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export PATH

store=/etc/zuv/profiles
logs=/etc/zuv/logs
files='profile_name hip.conf endbox.conf mapconfig.static device_id firmware_revision hipvars.txt hip.log'
log_lines=5000

[ "$(id -u)" = 0 ] || {
  echo 'zuv-sendbundle.sh: only root can read what goes into a bundle' >&2
  exit 1
}

mkdir -p "$logs"
name=bundle-$(date -u +%Y%m%dT%H%M%SZ)
work=$(mktemp -d "$logs/.$name.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

each_profile() {
  for folder in "$store"/.factory "$store"/*; do
    [ ! -d "$folder" ] || [ -L "$folder" ] || printf '%s\n' "$folder"
  done
}

is_plain_file() { [ -f "$1" ] && [ ! -L "$1" ]; }

invitations() {
  each_profile | while IFS= read -r folder; do
    ! is_plain_file "$folder/endbox.conf" || sed -n 's/^[[:space:]]*activation_code=//p' "$folder/endbox.conf"
  done
}

# Copies standard input to standard output, and leaves out the secrets.
clean() {
  LC_ALL=C awk -v secrets="$work/secrets" '
    BEGIN {
      while ((getline line < secrets) > 0) {
        gsub(/^[^!-~]+|[^!-~]+$/, "", line)
        if (line != "") secret[line]
      }
    }
    /-----BEGIN [A-Z ]*PRIVATE KEY-----/ { print "[a private key]"; inside = 1 }
    /-----END [A-Z ]*PRIVATE KEY-----/ { inside = 0; next }
    inside { next }
    tolower($0) ~ /^[^=]*(activation_code|invitation|secret|passw|token|psk|private|_key)[^=]*=/ { sub(/=.*/, "=[left out]") }
    { for (text in secret) $0 = without(text, $0); print }

    function without(text, line,    out, at) {
      while ((at = index(line, text)) > 0) {
        out = out substr(line, 1, at - 1) "[left out]"
        line = substr(line, at + length(text))
      }
      return out line
    }'
}

pack_profile() {
  into=$work/$name/${1##*/}
  mkdir "$into"
  for file in $files; do
    ! is_plain_file "$1/$file" || tail -n "$log_lines" "$1/$file" | clean >"$into/$file"
  done
}

# note COMMAND [WORD...]: prints the command and its output.
note() {
  printf '$ %s\n' "$*"
  "$@" 2>&1 || printf '(exit status %s)\n' "$?"
}

describe_host() {
  note date -u
  note uname -srm
  note ravctl list versions
  note ravctl list interfaces
  note ravctl service status
  note find "$store" -printf '%M %u %g %8s %TY-%Tm-%Td %TH:%TM %P\n'
}

mkdir "$work/$name"
invitations >"$work/secrets"
each_profile | while IFS= read -r folder; do pack_profile "$folder"; done
describe_host | clean >"$work/$name/host.txt"
tar -C "$work" -czf "$work/bundle" "$name"

# ln fails if the name exists, so the bundle never replaces another file.
bundle=$logs/$name.tar.gz
ln "$work/bundle" "$bundle"
printf '%s\n' "$bundle"
