#pragma once

#include "CommandLine/HelpFormatter.h"
#include "Commands/CommandRunner.h"
#include "Commands/Commands.h"
#include "Grammar/GrammarParts.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Cli {

/// The commands of a grammar, and which of them was given. Each group of them has a source of its
/// own: ListingGrammar.cpp and so on.
class CommandGrammar
{
public:
    /// The app must outlive it.
    CommandGrammar(CLI::App& app, Place place);

    /// Throws InvalidArgumentException. REQUIRES: it was parsed.
    [[nodiscard]] Command MakeCommand() const;

    [[nodiscard]] CommandLine::Command Describe() const { return formatter->Describe(app); }

    [[nodiscard]] OutputChoice GetChoice() const
    {
        return {.isQuiet = IsSet(quiet), .isJson = IsSet(json)};
    }

private:
    /// The options that `put` and `get` have in common.
    struct Transfer
    {
        CLI::App* command;
        CLI::Option* paths;
        CLI::Option* recursive;
        CLI::Option* resumes;
        CLI::Option* verifies;
        CLI::Option* progress;
        std::shared_ptr<std::size_t> jobs;
        CLI::Option* rate;
    };

    void AddListing();
    void AddStates();
    void AddTrees();
    void AddTransfers();
    [[nodiscard]] Transfer AddTransfer(const std::string& name, const std::string& arguments,
                                       const std::string& text, const std::string& end);
    template <typename Made>
    [[nodiscard]] Made MakeTransfer(const Transfer& parts) const;
    void AddSync();
    void AddChanges();
    void AddRemove();
    void AddTouch();
    void AddRelocations();
    template <typename Made>
    [[nodiscard]] Made MakeRelocation(const CLI::App* command, const CLI::Option* paths) const;
    void AddPermissions();
    void AddServer();
    void AddShellCommands();
    [[nodiscard]] std::string MakeHelp(const std::optional<std::string>& topic) const;

    void AddCertificates();
    void AddHelp();
    void AddShell();
    void AddExit();

    /// Adds the flag with which a command that changes files takes patterns on the command line; in
    /// the shell it always does. Returns a function that tells, once all is parsed.
    [[nodiscard]] std::function<bool()> AddGlob(CLI::App& command) const;

    CLI::App* Add(const std::string& name, const std::string& arguments, const std::string& text,
                  const std::string& end = "");

    template <typename PlainCommand>
    void AddPlain(const std::string& name, const std::string& text)
    {
        makers[Add(name, "", text)] = [] {
            return PlainCommand{};
        };
    }

    template <typename FolderCommand>
    void AddWithFolder(const std::string& name, const std::string& text)
    {
        auto* const command = Add(name, "[PATH]", text);
        auto* const path = AddPositional(command);
        makers[command] = [path] {
            return FolderCommand{GetText(path).value_or("")};
        };
    }

    CLI::App& app;
    const Place place;
    const std::shared_ptr<CommandLine::HelpFormatter> formatter;
    CLI::Option* quiet = nullptr;
    CLI::Option* json = nullptr;
    std::map<const CLI::App*, std::function<Command()>> makers;
};

} // namespace Cli
