# Sourced by the other scripts of this folder, which define `usage` before. Reads their words: sets `brief` to "yes" or to
# nothing, and `build` to the folder of the build.
# shellcheck shell=sh

brief=
case ${1-} in
  -h | --help)
    usage
    exit
    ;;
  --brief)
    # shellcheck disable=SC2034 # the scripts use it
    brief=yes
    shift
    ;;
esac
[ $# -eq 1 ] || {
  usage >&2
  exit 2
}
# shellcheck disable=SC2034
build=$(cd "$1" && pwd)
