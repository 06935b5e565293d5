#include "Configuration/Manual.h"

namespace Host {

namespace {

using enum CommandLine::Shown;
using CommandLine::Manual;
using CommandLine::Section;

Section MakeConfigurationSection()
{
    return {.title = "Configuration file",
            .text =
                "A configuration file is TOML, see host.toml(5). Its keys are the names of the "
                "flags without the dashes; a repeatable flag takes a list. Relative paths "
                "start at the folder of the file. Flags on the command line take precedence. "
                "If --config names a folder, the host reads host.toml in it, then conf.d/*.toml "
                "by name; a key replaces the value of an earlier file.\n"
                "\n"
                "    root = [\"/srv/files\", \"/srv/more\"]\n"
                "    users = \"/etc/talvensor/users\"\n"
                "    max-message = \"20MB\"\n"
                "    trust-any-client = false\n",
            .terms = {},
            .shown = InHelpAndPage};
}

Section MakeExitStatusSection()
{
    return {.title = "Exit status",
            .text = {},
            .terms = {{"0", "stopped by SIGINT or SIGTERM, or done"},
                      {"1", "failed"},
                      {"2", "wrong flags or configuration"},
                      {"3", "refused to start: the host would be open to others"},
                      {"4", "refused to start: the kernel allows no sandbox"},
                      {"5", "stopped, but a node did not finish its queued work in time"},
                      {"128+N", "ended at once by signal N, the second one"}},
            .shown = InHelpAndPage};
}

Section MakeSignalSection()
{
    return {.title = "Signals",
            .text = {},
            .terms = {{"SIGINT, SIGTERM",
                       "End the sessions, finish queued work, close the files and stop. A second "
                       "one ends the host at once."},
                      {"SIGHUP",
                       "Read the users and the trusted certificates again, and open the log file "
                       "again. Sessions of removed users, and of clients that are no longer "
                       "trusted, end. If something cannot be read, the log says so and the old one "
                       "stays in force. When the terminal of the host goes away, SIGHUP stops it."},
                      {"SIGPIPE, SIGXFSZ", "Ignored."}}};
}

Section MakeFileSection()
{
    return {
        .title = "Files",
        .text = {},
        .terms = {{"/etc/talvensor/host.toml, /etc/talvensor/conf.d/*.toml",
                   "The configuration of the service, see host.toml(5)."},
                  {"$XDG_STATE_HOME/talvensor/pki, ~/.local/state/talvensor/pki",
                   "The host's key and certificate, in trusted the certificates of clients, and in "
                   "rejected those of refused ones, unless --pki names another folder."}}};
}

Section MakeExampleSection()
{
    return {.title = "Examples",
            .text = "Serve a folder to programs on this machine:\n"
                    "\n"
                    "    talvensor-host --root /srv/files\n"
                    "\n"
                    "Serve it to other machines, to users with a password:\n"
                    "\n"
                    "    talvensor-host passwd users ann\n"
                    "    talvensor-host --root /srv/files --users users --trust-any-client \\\n"
                    "        --listen opc.tcp://0.0.0.0:4840\n"
                    "\n"
                    "Check a configuration without serving:\n"
                    "\n"
                    "    talvensor-host --check --config /etc/talvensor/host.toml\n",
            .terms = {}};
}

Section MakeFileExampleSection()
{
    return {.title = "Examples",
            .text = "    # Two machines' worth of files for those who have a password.\n"
                    "    listen = \"opc.tcp://0.0.0.0:4840\"\n"
                    "    root = [\"/srv/files\", \"/srv/more\"]\n"
                    "    read-only = \"/srv/manuals\"\n"
                    "    users = \"users\"\n"
                    "    grace = \"10s\"\n"
                    "    max-memory = \"512MiB\"\n",
            .terms = {}};
}

} // namespace

const Manual& GetManual()
{
    static const Manual manual{
        .name = "talvensor-host",
        .chapter = "8",
        .summary = "serve files to OPC UA clients",
        .synopsis = {"talvensor-host [OPTION]... --root DIR", "talvensor-host COMMAND ..."},
        .description = "Serves files to OPC UA clients.\n"
                       "\n"
                       "By default it listens on loopback only, where anybody may log in unless "
                       "there is a user file. On other addresses, users and encryption are "
                       "required. The kernel confines the host to the folders that it serves.",
        .sections = {MakeConfigurationSection(), MakeExitStatusSection(), MakeSignalSection(),
                     MakeFileSection(), MakeExampleSection()},
        .seeAlso = {"host.toml(5)", "talvensor-fs(1)"}};
    return manual;
}

const Manual& GetFileManual()
{
    static const Manual manual{
        .name = "host.toml",
        .chapter = "5",
        .summary = "configuration of talvensor-host",
        .synopsis = {"/etc/talvensor/host.toml", "/etc/talvensor/conf.d/*.toml"},
        .description =
            "A TOML file with settings of talvensor-host(8), which reads it with --config. Each "
            "key is the name of a flag without the dashes; a flag on the command line takes "
            "precedence. Relative paths start at the folder of the file. A setting that is left "
            "out has the default in parentheses.\n"
            "\n"
            "If --config names a folder, as the service does, the host reads host.toml in it, "
            "then conf.d/*.toml in the order of their names; a key there replaces the value of an "
            "earlier file.\n"
            "\n"
            "The file, and each folder on the way to it, must belong to root or the host's user, "
            "and nobody else may write to it. talvensor-host --check reports problems with line "
            "and key.",
        .sections = {MakeFileExampleSection()},
        .seeAlso = {"talvensor-host(8)"}};
    return manual;
}

} // namespace Host
