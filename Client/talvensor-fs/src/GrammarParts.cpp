#include "GrammarParts.h"

#include "Client/Exceptions.h"

namespace Cli {

namespace {

/// Stands before what the parser would mistake.
constexpr char mark = '\x01';

std::string Unmask(const std::string& argument)
{
    return argument.starts_with(mark) ? argument.substr(1) : argument;
}

} // namespace

std::vector<std::string> Mask(const std::vector<std::string>& arguments)
{
    std::vector<std::string> masked;
    bool isBehindOptions = false;
    for (const auto& argument : arguments) {
        if (argument == "--" && !isBehindOptions)
            isBehindOptions = true;
        else if (isBehindOptions || argument.starts_with('[') || argument.starts_with(mark))
            masked.push_back(mark + argument);
        else
            masked.push_back(argument);
    }
    return masked;
}

std::vector<std::string> GetTexts(const CLI::Option* option)
{
    // The raw results: those that are converted have lost lists and empty texts.
    std::vector<std::string> texts;
    for (const auto& text : option->results())
        texts.push_back(Unmask(text));
    return texts;
}

/// Throws InvalidArgumentException when there are none.
std::vector<std::string> GetPaths(const CLI::App* command, const CLI::Option* option)
{
    auto paths = GetTexts(option);
    if (paths.empty())
        throw Client::InvalidArgumentException(command->get_name() + " needs a path");
    return paths;
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

CLI::Option* AddPaths(CLI::App* command)
{
    return command->add_option("PATHS")
        ->expected(0, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->group("");
}

CLI::Option* AddPositional(CLI::App* command)
{
    return command->add_option("PATH")->group("");
}

} // namespace Cli
