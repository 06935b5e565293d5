#include "Text.h"

#include "Support/UnsafeCharacters.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace Demo {

namespace {

struct Utf8Form
{
    unsigned char leadMask;
    unsigned char lead;
    std::size_t length;
    std::uint32_t smallest;
};

constexpr std::array utf8Forms{
    Utf8Form{0x80, 0x00, 1, 0x0},
    Utf8Form{0xE0, 0xC0, 2, 0x80},
    Utf8Form{0xF0, 0xE0, 3, 0x800},
    Utf8Form{0xF8, 0xF0, 4, 0x10000},
};

bool IsPrintable(std::uint32_t character)
{
    const bool isSurrogate = character >= 0xD800 && character < 0xE000;
    const bool isMark = character == '\\' || character == '"';
    return !Support::IsUnsafe(character) && !isSurrogate && !isMark && character <= 0x10FFFF;
}

unsigned char ByteAt(std::string_view text, std::size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

bool HasForm(std::string_view text, const Utf8Form& form)
{
    if (text.size() < form.length || (ByteAt(text, 0) & form.leadMask) != form.lead)
        return false;
    auto character = static_cast<std::uint32_t>(ByteAt(text, 0) & ~form.leadMask);
    for (std::size_t index = 1; index < form.length; ++index) {
        if ((ByteAt(text, index) & 0xC0U) != 0x80U)
            return false;
        character = character << 6U | (ByteAt(text, index) & 0x3FU);
    }
    return character >= form.smallest && IsPrintable(character);
}

/// The length of the printable character at the beginning; 0 when there is none.
std::size_t PrintableLength(std::string_view text)
{
    for (const auto& form : utf8Forms) {
        if (HasForm(text, form))
            return form.length;
    }
    return 0;
}

void AppendEscaped(std::string& target, unsigned char byte)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    target += "\\x";
    target += digits[byte / 16U];
    target += digits[byte % 16U];
}

} // namespace

std::string Escape(std::string_view raw)
{
    std::string escaped;
    while (!raw.empty()) {
        const auto length = PrintableLength(raw);
        if (length > 0)
            escaped += raw.substr(0, length);
        else
            AppendEscaped(escaped, ByteAt(raw, 0));
        raw.remove_prefix(length > 0 ? length : 1);
    }
    return escaped;
}

std::string Quote(const std::filesystem::path& path)
{
    return '"' + Escape(path.native()) + '"';
}

void PrintLine(const std::string& line)
{
    const auto whole = line + '\n';
    std::fwrite(whole.data(), 1, whole.size(), stdout);
}

} // namespace Demo
