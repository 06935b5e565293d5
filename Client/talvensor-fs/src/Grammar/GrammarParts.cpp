#include "Grammar/GrammarParts.h"

#include "Client/Exceptions.h"
#include "Output/Words.h"

namespace Cli {

namespace {

/// Stands before what the parser would mistake.
constexpr char guard = '\x01';

std::string RemoveGuard(const std::string& argument)
{
    return argument.starts_with(guard) ? argument.substr(1) : argument;
}

/// Throws InvalidArgumentException when there is none.
void RequirePath(const CLI::App* command, const CLI::Option* option)
{
    if (option->count() == 0)
        throw Client::InvalidArgumentException(command->get_name() + ": needs a path");
}

} // namespace

std::vector<std::string> Mask(const std::vector<std::string>& arguments)
{
    std::vector<std::string> masked;
    bool isBehindOptions = false;
    for (const auto& argument : arguments) {
        if (argument == "--" && !isBehindOptions)
            isBehindOptions = true;
        else if (isBehindOptions || argument.starts_with('[') || argument.starts_with(guard))
            masked.push_back(guard + argument);
        else
            masked.push_back(argument);
    }
    return masked;
}

std::string Unmask(const std::string& argument)
{
    return RemoveMarks(RemoveGuard(argument));
}

std::string UnmaskPattern(const std::string& argument)
{
    return ToPattern(RemoveGuard(argument));
}

std::vector<std::string> GetTexts(const CLI::Option* option)
{
    // The raw results: those that are converted have lost lists and empty texts.
    std::vector<std::string> texts;
    for (const auto& text : option->results())
        texts.push_back(Unmask(text));
    return texts;
}

std::vector<std::string> GetPaths(const CLI::App* command, const CLI::Option* option)
{
    RequirePath(command, option);
    return GetTexts(option);
}

std::vector<std::string> GetPatterns(const CLI::App* command, const CLI::Option* option)
{
    RequirePath(command, option);
    return GetPatternsOr(option, {});
}

std::vector<std::string> GetPatternsOr(const CLI::Option* option, const std::string& path)
{
    if (option->count() == 0)
        return {path};
    std::vector<std::string> patterns;
    for (const auto& text : option->results())
        patterns.push_back(UnmaskPattern(text));
    return patterns;
}

std::optional<std::string> GetText(const CLI::Option* option)
{
    if (option->count() == 0)
        return std::nullopt;
    return Unmask(option->results().back());
}

CLI::Option* AddFlag(CLI::App& app, const std::string& flag, const std::string& text)
{
    return app.add_flag(flag)->description(text);
}

bool IsSet(const CLI::Option* option)
{
    return option->count() > 0;
}

CLI::Option* AddHumanReadable(CLI::App& command)
{
    command.set_help_flag("--help", "print this text");
    return AddFlag(command, "-h,--human-readable", "show sizes as 1.5K, 20M and so on");
}

CLI::Option* AddPaths(CLI::App* command)
{
    return command->add_option("PATHS")
        ->expected(0, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->group("");
}

CLI::Option* AddRate(CLI::App& command)
{
    return command.add_option("--bwlimit")
        ->type_name("RATE")
        ->description("limit the transfer rate: KiB per second, or with the suffix K, M or G "
                      "KiB, MiB or GiB per second; 0: no limit");
}

CLI::Option* AddPositional(CLI::App* command)
{
    return command->add_option("PATH")->group("");
}

} // namespace Cli
