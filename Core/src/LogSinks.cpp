#include "Core/Embedding/LogControl.h"

#include "Core/Exception.h"

#include "Support/Escape.h"

#include <fmt/format.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

namespace Core::Embedding {
namespace {

constexpr std::string_view quotes = "\\\"";           // escaped in quoted texts
constexpr std::string_view quotesAndBlanks = "\\\" "; // escaped in words

std::string Word(std::string_view text)
{
    if (text.empty())
        return "-";
    return Support::Escape(text, Support::EscapeForm::Hexadecimal, quotesAndBlanks);
}

void AppendQuoted(std::string& line, std::string_view text)
{
    line += '"';
    line += Support::Escape(text, Support::EscapeForm::Hexadecimal, quotes);
    line += '"';
}

void AppendNamed(std::string& line, std::string_view name, std::string_view text)
{
    if (text.empty())
        return;
    fmt::format_to(std::back_inserter(line), " {}=", name);
    AppendQuoted(line, text);
}

std::string LevelName(LogLevel level)
{
    constexpr std::array<std::string_view, 8> names{"Off",         "Error",  "Warning", "Notice",
                                                    "Information", "Detail", "Debug",   "Trace"};
    const auto number = static_cast<std::int32_t>(level);
    if (number < 0 || static_cast<std::size_t>(number) >= names.size())
        return fmt::format("Level{}", number);
    return std::string(names.at(static_cast<std::size_t>(number)));
}

/// Writes finished lines through a sink of spdlog, which writes one at a time.
class LineSink final : public LogSink
{
public:
    explicit LineSink(std::unique_ptr<spdlog::sinks::sink> target)
        : target(std::move(target))
    {
        this->target->set_pattern("%v");
    }

    void Write(const LogEntry& entry) override
    {
        const auto line = FormatLogLine(entry);
        target->log(spdlog::details::log_msg({}, spdlog::level::info, line));
        target->flush();
    }

private:
    std::unique_ptr<spdlog::sinks::sink> target;
};

} // namespace

LogSink::~LogSink() = default;

std::shared_ptr<LogSink> MakeConsoleLogSink()
{
    return std::make_shared<LineSink>(std::make_unique<spdlog::sinks::stderr_sink_mt>());
}

std::shared_ptr<LogSink> MakeFileLogSink(const std::filesystem::path& file)
{
    try {
        return std::make_shared<LineSink>(
            std::make_unique<spdlog::sinks::basic_file_sink_mt>(file.string()));
    } catch (const spdlog::spdlog_ex& exception) {
        throw SystemException(
            fmt::format("cannot open the log file '{}': {}", file.string(), exception.what()));
    }
}

std::string FormatLogLine(const LogEntry& entry)
{
    return (entry.timestamp.IsEmpty() ? "-" : entry.timestamp.ToISO8601String()) + " " +
           FormatLogLineWithoutTime(entry);
}

std::string FormatLogLineWithoutTime(const LogEntry& entry)
{
    auto line = fmt::format("{} {} {} ", LevelName(entry.level), Word(entry.category), entry.code);
    AppendQuoted(line, entry.message);
    fmt::format_to(std::back_inserter(line), " {} {}:{}", Word(entry.function), Word(entry.file),
                   entry.line);
    AppendNamed(line, "details", entry.details);
    AppendNamed(line, "origin", entry.origin);
    if (entry.attachment != nullptr)
        AppendNamed(line, "attachment", entry.attachment->ToString());
    return line;
}

} // namespace Core::Embedding
