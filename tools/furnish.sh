# Sourced by tools/demo.sh and tools/shell.sh, which run in the top folder of the sources on a private host. That host
# has the program, a store and a daemon. Each function adds a thing that an administrator would add.
# shellcheck shell=sh

# missing_of TOOL:PACKAGE...: prints the tools that are missing on this host, as "TOOL (PACKAGE), TOOL (PACKAGE)".
missing_of() {
  for tool in "$@"; do
    command -v "${tool%:*}" >/dev/null || printf '%s (%s)\n' "${tool%:*}" "${tool#*:}"
  done | paste -s -d , - | sed 's/,/, /g'
}

# Installs the init script, unless a tool that it or ravctl needs is missing; no_init_script then names the tools.
furnish_init_script() {
  no_init_script=$(missing_of killall:psmisc start-stop-daemon:dpkg)
  [ -z "$no_init_script" ] || return 0
  mkdir -p /etc/init.d
  install -m 755 packaging/examples/hip.init /etc/init.d/hip
}

# Installs the scripts that a package installs beside ravctl.
furnish_scripts() {
  install -m 755 scripts/* /usr/bin/
}

furnish_bundle_script() {
  install -m 755 docs/examples/zuv-sendbundle.sh /usr/bin/zuv-sendbundle.sh
}

# Puts the examples where a package puts them, so that everybody can follow the tasks of ravctl-examples(7).
furnish_examples() {
  mount -t tmpfs -o mode=755 none /usr/share/doc
  mkdir /usr/share/doc/ravctl
  cp -r docs/examples packaging/examples /usr/share/doc/ravctl/
  rm -rf /usr/share/doc/ravctl/examples/demo-store
}

# Puts the manuals where man finds pages that an administrator installed. man does not start without its configuration
# file, and groff warns about each missing configuration file of its own. All of these may be empty.
furnish_manuals() {
  mount -t tmpfs -o mode=755 none /usr/local
  for manual in man/*.[1-8]; do
    install -D -m 644 -t "/usr/local/share/man/man${manual##*.}" "$manual"
  done
  mkdir -p /etc/groff
  touch /etc/manpath.config /etc/groff/man.local /etc/groff/mdoc.local
}
