#include "Completion.h"

#include <sstream>

namespace Manual {

namespace {

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

Values GetValues(const CommandLine::Option& option)
{
    const auto& placeholder = option.placeholder;
    if (placeholder == "FILE")
        return {.kind = ValueKind::File, .choices = {}};
    if (placeholder == "DIR")
        return {.kind = ValueKind::Folder, .choices = {}};
    if (!Contains(placeholder, "|"))
        return {};
    Values values{.kind = ValueKind::Choice, .choices = {}};
    std::istringstream choices(placeholder);
    for (std::string choice; std::getline(choices, choice, '|');)
        values.choices.push_back(choice);
    return values;
}

Values GetArguments(const CommandLine::Command& command)
{
    const bool takesFiles = Contains(command.usage, "LOCAL") || Contains(command.usage, " FILE");
    return {.kind = takesFiles ? ValueKind::File : ValueKind::Unknown, .choices = {}};
}

std::vector<CommandLine::Option> GetOptions(const CommandLine::Command& program)
{
    std::vector<CommandLine::Option> options;
    for (const auto& group : program.groups)
        options.insert(options.end(), group.options.begin(), group.options.end());
    return options;
}

std::vector<CommandLine::Option> GetOwnOptions(const CommandLine::Command& command)
{
    auto options = GetOptions(command);
    std::erase_if(options, [](const auto& each) { return each.names.back() == "--help"; });
    return options;
}

std::string Quote(const std::string& text)
{
    std::string quoted = "'";
    for (const char character : text) {
        if (character == '\'')
            quoted += "'\\''";
        else
            quoted += character == '\n' ? ' ' : character;
    }
    return quoted + '\'';
}

std::string Join(const std::vector<std::string>& words, const std::string& between)
{
    std::string joined;
    for (const auto& word : words)
        joined += (joined.empty() ? "" : between) + word;
    return joined;
}

} // namespace Manual
