#include "Core/Embedding/LogControl.h"

#include "Core/Exception.h"

#include "Support/UnsafeCharacters.h"

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

struct CodePoint
{
    char32_t value = 0;
    std::size_t length = 0; // 0: not UTF-8
};

unsigned char ByteAt(std::string_view text, std::size_t position)
{
    return static_cast<unsigned char>(text[position]);
}

std::size_t SequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead < 0xE0)
        return 2;
    if (lead >= 0xE0 && lead < 0xF0)
        return 3;
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

/// Whether the shortest sequence for a character is that long, and it is a character at all.
bool IsWellFormed(const CodePoint& point)
{
    constexpr std::array<char32_t, 5> lowest{0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = point.value >= 0xD800 && point.value <= 0xDFFF;
    return point.value >= lowest.at(point.length) && point.value <= 0x10FFFF && !isSurrogate;
}

/// The character at the beginning of a text, which is not empty.
CodePoint DecodeFirst(std::string_view text)
{
    const auto lead = ByteAt(text, 0);
    const auto length = SequenceLength(lead);
    if (length == 0 || length > text.size())
        return {};
    if (length == 1)
        return {lead, length};
    CodePoint point{static_cast<char32_t>(lead & (0x7FU >> length)), length};
    for (std::size_t i = 1; i < length; ++i) {
        if ((ByteAt(text, i) & 0xC0U) != 0x80U)
            return {};
        point.value = point.value << 6U | (ByteAt(text, i) & 0x3FU);
    }
    return IsWellFormed(point) ? point : CodePoint{};
}

bool IsDangerous(char32_t character)
{
    return Support::IsUnsafe(character) || character == '\\' || character == '"';
}

void AppendEscaped(std::string& line, std::string_view text, bool isWord)
{
    while (!text.empty()) {
        const auto point = DecodeFirst(text);
        const auto length = std::max<std::size_t>(point.length, 1);
        const bool isBlankInWord = isWord && point.value == ' ';
        if (point.length == 0 || isBlankInWord || IsDangerous(point.value)) {
            for (std::size_t i = 0; i < length; ++i)
                fmt::format_to(std::back_inserter(line), "\\x{:02x}", ByteAt(text, i));
        } else {
            line += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
}

std::string Word(std::string_view text)
{
    if (text.empty())
        return "-";
    std::string word;
    AppendEscaped(word, text, true);
    return word;
}

void AppendQuoted(std::string& line, std::string_view text)
{
    line += '"';
    AppendEscaped(line, text, false);
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
    auto line = fmt::format("{} {} {} {} ",
                            entry.timestamp.IsEmpty() ? "-" : entry.timestamp.ToISO8601String(),
                            LevelName(entry.level), Word(entry.category), entry.code);
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
