#pragma once

#include "Client/FileSystem.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Cli {

/// A path that stands for standard input or output where a command says so.
constexpr const char* standardStream = "-";

/// The place in which the commands are typed.
enum class Place
{
    CommandLine,
    Shell,
};

// Paths are patterns where it says so, see Patterns.h. RunCommand expands them.

struct ListCommand
{
    std::vector<std::string> paths; ///< patterns
    bool isRecursive = false;
    bool isLong = false;
    bool hasSizes = false;
    bool isHumanReadable = false;
    bool endsWithZero = false;
};

struct StateCommand
{
    std::vector<std::string> paths; ///< patterns
};

struct UsageCommand
{
    std::vector<std::string> paths; ///< patterns
    bool isSummary = false;
    bool isHumanReadable = false;
};

/// The space of disks.
struct SpaceCommand
{
    std::vector<std::string> paths; ///< patterns; none: all folders
    bool isHumanReadable = false;
};

struct TreeCommand
{
    std::vector<std::string> paths; ///< patterns
};

struct FindCommand
{
    std::string name;               ///< a pattern of fnmatch(3), with a slash for whole paths
    std::vector<std::string> paths; ///< patterns
};

/// The common part of `put` and `get`: sources, and their target.
struct TransferCommand
{
    std::vector<std::string> sources; ///< patterns; those of PutCommand in the shell alone
    std::string target;
    bool isRecursive = false;
    bool resumes = false;
    bool verifies = false;
    bool showsProgress = false; ///< also where it cannot be drawn
    bool followsLinks = false;  ///< of `put`
    std::size_t jobs = 2;
    std::uint64_t bytesPerSecond = 0; ///< 0: as fast as it goes
};

struct PutCommand : TransferCommand
{
    bool isInPlace = false;
    bool replaces = false;
};

struct GetCommand : TransferCommand
{};

/// Makes a tree on one side like one on the other.
struct SyncCommand
{
    std::string source;
    std::string target;
    bool isUpload = false; ///< the target is the remote one; the paths have no prefix any more
    bool isTrial = false;  ///< only says what it would do
    bool deletes = false;
    bool comparesContents = false;
    bool keepsNewer = false;
    bool followsLinks = false;
    std::vector<std::string> exclusions; ///< globs
    std::size_t jobs = 2;
    std::uint64_t bytesPerSecond = 0; ///< 0: as fast as it goes
};

struct CatCommand
{
    std::vector<std::string> paths; ///< patterns
};

// Those that change what is there take patterns only where they say so: a name that is misspelt or
// gone could match others.

struct RemoveCommand
{
    std::vector<std::string> paths; ///< patterns
    bool isRecursive = false;
    bool mayBeMissing = false;
    bool takesPatterns = true;
};

/// The common part of `mv` and `cp`.
struct RelocationCommand
{
    std::vector<std::string> sources; ///< patterns
    std::string target;
};

struct MoveCommand : RelocationCommand
{
    bool takesPatterns = true;
};

struct CopyCommand : RelocationCommand
{
    bool isRecursive = false;
};

struct MakeDirectoryCommand
{
    std::vector<std::string> paths;
};

struct ExistsCommand
{
    std::vector<std::string> paths;
};

struct TouchCommand
{
    std::vector<std::string> paths;       ///< patterns
    std::optional<Client::FileTime> time; ///< none: now
    bool takesPatterns = true;
};

struct PermissionsCommand
{
    std::vector<std::string> paths; ///< patterns
    Client::Permissions permissions;
    std::optional<std::uint32_t> mode; ///< takes the place of `permissions`: the nine bits
    bool takesPatterns = true;
};

struct WatchCommand
{
    std::string node;      ///< empty: the first shared one
    std::size_t count = 0; ///< events to wait for; 0: until interrupted
};

struct InfoCommand
{};

// They need no server.

/// Shows the client's own certificate.
struct CertificateCommand
{};

/// Lists the servers that are trusted, or takes the trust in some away.
struct KnownCommand
{
    std::vector<std::string> forgotten; ///< host names, with or without ports
};

struct ShellCommand
{
    std::optional<std::string> file; ///< takes the lines from here; "-": standard input
    std::vector<std::string> lines;  ///< or these
};

// Of the shell alone.

struct ChangeFolderCommand
{
    std::string path; ///< empty: back to where it began
};

struct ChangeLocalFolderCommand
{
    std::string path; ///< empty: home
};

struct ShowFolderCommand
{
    bool isLocal = false;
};

struct HelpCommand
{
    std::string text;
};

/// Runs a program of this machine.
struct LocalProgramCommand
{
    std::vector<std::string> arguments; ///< patterns but for the first, which is its name
};

struct ExitCommand
{
    int status = 0;
};

using Command =
    std::variant<ListCommand, StateCommand, UsageCommand, SpaceCommand, TreeCommand, FindCommand,
                 PutCommand, GetCommand, SyncCommand, MoveCommand, CopyCommand, CatCommand,
                 RemoveCommand, MakeDirectoryCommand, ExistsCommand, TouchCommand,
                 PermissionsCommand, WatchCommand, InfoCommand, CertificateCommand, KnownCommand,
                 ShellCommand, ChangeFolderCommand, ChangeLocalFolderCommand, ShowFolderCommand,
                 HelpCommand, LocalProgramCommand, ExitCommand>;

} // namespace Cli
