#include "Grammar/Manual.h"

namespace Cli {

namespace {

using enum CommandLine::Shown;
using CommandLine::Manual;
using CommandLine::Section;

Section MakeServerSection()
{
    return {.title = "Server and login",
            .text = "The server is taken from -e, then from the profile, then from "
                    "$TALVENSOR_ENDPOINT. The user is taken from -u, the profile, "
                    "$TALVENSOR_USER. The password comes from --password-file, the profile's "
                    "password-file, $TALVENSOR_PASSWORD, or is asked for on the terminal.\n"
                    "\n"
                    "The certificate of a server is shown when it is first seen, and remembered "
                    "once it is trusted; compare its fingerprint with what 'talvensor-host "
                    "fingerprint' shows on the server.",
            .terms = {},
            .shown = InHelpAndPage};
}

Section MakeProfileSection()
{
    return {.title = "Profiles",
            .text = "Profiles are in $XDG_CONFIG_HOME/talvensor/client.toml "
                    "(~/.config/talvensor/client.toml). Only the endpoint is required. Relative "
                    "paths start at the folder of the file.\n"
                    "\n"
                    "    [plant]\n"
                    "    endpoint = \"opc.tcp://plant.example:4840\"\n"
                    "    user = \"ann\"\n"
                    "    password-file = \"plant.password\"\n"
                    "    security = \"encrypted\"\n"
                    "    timeout = 120\n"
                    "    connect-timeout = 5\n"
                    "    reconnect-timeout = 300\n",
            .terms = {},
            .shown = InHelpAndPage};
}

Section MakeManyHostsSection()
{
    return {.title = "Many hosts",
            .text = "--on runs one command on many hosts, --parallel of them at the same time. Its "
                    "list takes profiles, opc.tcp:// endpoints, @GROUP for a group of client.toml, "
                    "and - for profiles or endpoints on standard input, one per line:\n"
                    "\n"
                    "    [groups]\n"
                    "    line1 = [\"plc1\", \"plc2\"]\n"
                    "\n"
                    "The output of a host is printed when it ends, with the name of the host "
                    "before each line, and a table of all at the end. With --json each object has "
                    "the host, and one more for each host has its status. The exit status is the "
                    "largest of all. get, and sync from the server, put the files of a host into "
                    "LOCAL/HOST.\n"
                    "\n"
                    "Nothing is asked: passwords come from password files, and "
                    "servers that were never seen are refused without --accept-new or "
                    "--trust-fingerprint. Commands that need standard input or a terminal are "
                    "refused.",
            .terms = {}};
}

Section MakePathSection()
{
    return {
        .title = "Paths and errors",
        .text =
            "Relative remote paths start at the first folder of the server; ls / shows the "
            "others. Paths are bytes: names that are not UTF-8 are kept. A remote path may "
            "begin with remote:, which is taken off. Each error is one line on standard "
            "error.\n"
            "\n"
            "Remote paths of ls, stat, du, df, tree, find, get, cat and cp may be patterns: * ? "
            "[...] within a name, and ** for any directories; those of rm, mv, touch and chmod "
            "with --glob, and in the shell. Quote them, so that your shell leaves them alone; a "
            "character after a backslash is taken literally.",
        .terms = {},
        .shown = InHelpAndPage};
}

Section MakeExitStatusSection()
{
    return {.title = "Exit status",
            .text = {},
            .terms = {{"0", "all done"},
                      {"1", "something failed, or is missing; the rest was done"},
                      {"2", "wrong arguments or settings"},
                      {"3", "no connection, or it was lost for good"},
                      {"4", "refused: the login, or a certificate"},
                      {"130", "interrupted by Ctrl-C; a second Ctrl-C ends at once"}},
            .shown = InHelpAndPage};
}

Section MakeEnvironmentSection()
{
    return {.title = "Environment",
            .text = {},
            .terms = {{"TALVENSOR_ENDPOINT", "The server, unless -e or a profile names one."},
                      {"TALVENSOR_USER", "The user, unless -u or a profile names one."},
                      {"TALVENSOR_PASSWORD", "The password, unless it is in a file."},
                      {"XDG_CONFIG_HOME, XDG_STATE_HOME",
                       "The folders that hold talvensor/client.toml and talvensor/client "
                       "(~/.config and ~/.local/state)."}}};
}

Section MakeFileSection()
{
    return {.title = "Files",
            .text = {},
            .terms = {{"~/.config/talvensor/client.toml", "The profiles."},
                      {"~/.local/state/talvensor/client",
                       "The client's key and certificate, the certificates of trusted servers, "
                       "and a record of each large transfer that was broken off."}}};
}

Section MakeExampleSection()
{
    return {.title = "Examples",
            .text = "Send a directory tree, and look at it:\n"
                    "\n"
                    "    export TALVENSOR_ENDPOINT=opc.tcp://127.0.0.1:4840\n"
                    "    talvensor-fs put -r docs .\n"
                    "    talvensor-fs ls -R -l docs\n"
                    "\n"
                    "Carry on a transfer that broke off, and compare the result:\n"
                    "\n"
                    "    talvensor-fs put --continue --verify large.img .\n"
                    "\n"
                    "Use a profile, as another user:\n"
                    "\n"
                    "    talvensor-fs --profile plant -u bob get -r logs /tmp\n"
                    "\n"
                    "Send a file to all hosts of a group:\n"
                    "\n"
                    "    talvensor-fs --on @line1 put firmware.bin /data/\n"
                    "\n"
                    "Run without a terminal, and trust one certificate only:\n"
                    "\n"
                    "    talvensor-fs --profile plant --trust-fingerprint \"$FINGERPRINT\" \\\n"
                    "        --json ls -l .\n",
            .terms = {}};
}

} // namespace

const Manual& GetManual()
{
    static const Manual manual{
        .name = "talvensor-fs",
        .chapter = "1",
        .summary = "move files to and from an OPC UA file server",
        .synopsis = {"talvensor-fs [OPTION]... COMMAND ..."},
        .description = "Moves files to and from a talvensor-host, and lists, changes and deletes "
                       "them there.",
        .sections = {MakeServerSection(), MakeProfileSection(), MakeManyHostsSection(),
                     MakePathSection(), MakeExitStatusSection(), MakeEnvironmentSection(),
                     MakeFileSection(), MakeExampleSection()},
        .seeAlso = {"talvensor-host(8)"}};
    return manual;
}

} // namespace Cli
