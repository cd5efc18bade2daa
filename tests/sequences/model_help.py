"""A model of the pages of usage, help and reference: from the words of the command to its lines.

Texts are bytes throughout, as the system passes them.
"""

LEVEL = "[log_level=<info | warn | error | debug | trace>]", "log_level: log level"
NETWORK, INVITATION = ("[network=<interface | auto>]", "network: network interface"), (
    "[invitation=<invitation>]", "invitation: invitation code")
SYS = "[sys=<sys-impl>]", "sys: sys impl name"
ADDRESS = "helmsor: helmsor address, in host:port form"
ACTIVATE = "[activate]", "activate: single word"
PROFILE = " <profile name>"

# Each command in the order of the reference: what follows its name in the usage, its description, its parameters, and
# whether it has results.
ENTRIES = {
    "profile create": (" <new profile name>",
                       "Creates a new profile.   The name and helmsor settings are required.",
                       [("[allow_rename=<boolean>]", "allow_rename: boolean"), ("helmsor=<addr:port>", ADDRESS), NETWORK,
                        INVITATION, LEVEL, SYS, ACTIVATE], True),
    "profile modify": (PROFILE, "Changes one or more of the configured properties of the profile.",
                       [("[new_name=<string>]", "new_name: string"), ("[helmsor=<addr:port>]", ADDRESS), NETWORK,
                        INVITATION, LEVEL, SYS, ACTIVATE], True),
    "profile details": (PROFILE, "Displays the configuration associated with the given profile.", [], True),
    "profile activate": (PROFILE, "Makes the given profile the active profile, possibly restarting the service along the"
                         " way.", [SYS], True),
    "profile delete": (PROFILE, "Removes a profile.", [], False),
    "profile rename": (PROFILE, "Changes the name of the profile.  This is a shorthand for \u2018profile modify"
                       " <profile name> new_name=<string>\u2019", [("new_name=<string>", "new_name: string")], True),
    "support reset": (PROFILE, "Removes various temporary files associated with the profile, giving it a clean restart.",
                      [], True),
    "list log": (PROFILE, "Displays an extract from the hip.log file for the given profile.",
                 [("[max_lines=<integer>]", "max_lines: integer"), LEVEL], True),
    "list interfaces": ("", "Reports the names of network interfaces on the system that are suitable for selection as the"
                        " HIP underlay.", [], True),
    "list versions": ("", "Displays version numbers for various pieces of the installed HIP application.", [], True),
    "list profiles": ("", "Displays a list of the configured profiles, showing the directory and profile name for each"
                      " one.", [], True),
    "service start": ("", "Starts the zuv-hipd background process.", [SYS], False),
    "service stop": ("", "Stops the zuv-hipd background process.", [SYS], False),
    "service restart": ("", "Stops the zuv-hipd background process if it is running, and then starts it up again.",
                        [SYS, ("[full]", "full: single word")], False),
    "service status": ("", "Displays a report about the zuv-hipd background process: whether it is running, and some"
                       " information about its connections.", [], True),
    "support bundle": ("", "Writes a new support bundle to the Logs directory.", [], True),
    "json <object>": (" <json object>", "Executes a command given in JSON form.", [], True),
    "usage": ("", "Displays in short how commands are given.", [], True),
    "help": (" [<category> | <command name>]", "Displays the commands by category, or the entry of one command.", [],
             True),
    "reference": ("", "Displays the entries of all commands, and the fields of their results.", [], True),
}

COMMON = [("profile activate", "designates which profile is currently active"), ("profile create", "makes a new profile"),
          ("profile delete", "removes a profile"),
          ("profile rename", "changes the user-friendly name attached to a profile")]
CATEGORIES = {
    "profile": COMMON + [("profile modify", "changes any of the profile details"),
                         ("profile details", "displays configured profile settings")],
    "service": [("service start", "runs the HIP background process"), ("service stop", "ends the background process"),
                ("service restart", "stops and restarts the background process"),
                ("service status", "displays the current process status")],
    "list": [("list profiles", "displays a list of the configured profiles"),
             ("list interfaces", "displays network interfaces available on the machine"),
             ("list versions", "displays version numbers for the software"),
             ("list log", "displays an excerpt of the active HIP log")],
    "log": [("list log", "displays an excerpt of the active HIP log")],
    "support": [("support reset", "clean temporary data from a profile"), ("support bundle", "generate a support bundle")],
    "internal": [],
    "json": [],
}
OTHER_NAMES = {"profiles": "profile", "services": "service", "show": "list"}

USAGE = ["ravctl usage:", "    <command name> <command-specific params> [--quiet | --verbose]", "    help",
         "    help <category>", "    help <command name>", "    reference", "    json <request object>"]

FIELDS = [
    "Commands also return standard fields for result status:",
    "  method: <string, the name of the method invoked>",
    "  status_code: <integer, a code giving the specific result>",
    "  status_text: <string, readable explanatory text for the status>",
    "  status_details: <optional string, more detail about the status code>",
    "  status_context: <optional string, detail about where an error occurred>",
    "Commands that return profile details do so with this set of fields:",
    "  profile_name: <string, the common name of the profile>",
    "  profile_dir: <string, the subdirectory in which the profile is stored>",
    "  network: <string, the name of the underlay interface>",
    "  deviceID: <string, the device ID for a managed profile",  # without the last bracket
    "  overlay_device_ip: <string, the IP address on the overlay network>",
    "  overlay_mask: <string, the subnet mask for this HIP service>",
    "  invitation: <string, a code used when creating the profile>",
    "  helmsor: <string in host:port form, the Helmsor address>",
    "  networks: <local interfaces suitable for use as the underlay network>",
]


def command_lines(commands):
    return ["    '%s' %s" % command for command in commands]


def summary():
    categories = [("help profile", "for managing your HIP profiles"),
                  ("help service", "for starting and stopping HIP processes"),
                  ("help list", "to display details of various things"),
                  ("help log", "to display or manage log files"),
                  ("help support", "for advanced operations commands")]
    common = COMMON + [("service start", "runs the HIP background process"),
                       ("service stop", "ends the background process"),
                       ("list profiles", "provides a list of the configured profiles")]
    return (["Look up commands by category:"] + command_lines(categories)
            + ["Try 'reference' for the complete list of all commands, or start with these common ones:"]
            + command_lines(common))


def entry(name):
    suffix, description, parameters, has_results = ENTRIES[name]
    lines = ["", "NAME", " " * 8 + name + " - " + description, "", "USAGE"]
    lines += [" ".join([" " * 8 + name + suffix] + [usage for usage, _ in parameters])]
    lines += ["", "PARAMETERS"] + [" " * 8 + text for _, text in parameters]
    return lines + ([] if has_results else ["", " <no additional result data>"])


def help_page(words):
    """`words` are those behind `help`, without the output modes."""
    if not words:
        return summary()
    command = {"show": "list"}.get(words[0], words[0]) + " " + " ".join(words[1:2])
    command = {"service bounce": "service restart"}.get(command, command)
    category = OTHER_NAMES.get(words[0], words[0])
    if command in ENTRIES and " " not in words[0] and words[0] != "json":
        return ["ravctl help for command: " + command] + entry(command)
    if category in CATEGORIES:
        lines = ["ravctl help for '%s' commands:" % category] + command_lines(CATEGORIES[category])
        return lines + (entry("json <object>") if category == "json" else [])
    if words[0] in ("usage", "help", "reference"):
        return ["ravctl help for command: " + words[0]] + entry(words[0])
    return ["ravctl help: nothing found for '%s'" % " ".join(words[:2])] + summary()


def page(words):
    """Returns the lines of a page as bytes. `words` begin with `usage`, `help` or `reference`."""
    words = [word.decode("utf-8", "surrogateescape") for word in words]
    if words[0] == "usage":
        lines = USAGE
    elif words[0] == "help":
        lines = help_page([word for word in words[1:] if word not in ("--quiet", "--verbose", "--json", "--text")])
    else:
        lines = [line for name in ENTRIES for line in entry(name)] + [""] + FIELDS
    return [line.encode("utf-8", "surrogateescape") for line in lines]
