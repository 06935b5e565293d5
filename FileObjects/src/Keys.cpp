#include "Keys.h"

#include <algorithm>
#include <array>

namespace FileObjects {

namespace {

/// The room for the name of a property, so that each object's properties have keys if it has one.
constexpr std::size_t propertyRoom = 32;

constexpr std::array<std::pair<char, NodeKind>, 4> letters = {{{'d', NodeKind::Directory},
                                                               {'f', NodeKind::File},
                                                               {'t', NodeKind::Transfer},
                                                               {'x', NodeKind::Temporary}}};

char GetLetter(NodeKind kind)
{
    return std::ranges::find(letters, kind, &std::pair<char, NodeKind>::second)->first;
}

bool IsContinuation(std::string_view text, std::size_t position)
{
    return position < text.size() && (static_cast<unsigned char>(text[position]) & 0xC0U) == 0x80U;
}

/// Returns the length of the UTF-8 character at a position (RFC 3629); 0 if there is none.
std::size_t GetCharacterLength(std::string_view text, std::size_t position)
{
    const auto first = static_cast<unsigned char>(text[position]);
    if (first < 0x80)
        return 1;
    const auto second =
        position + 1 < text.size() ? static_cast<unsigned char>(text[position + 1]) : 0U;
    if (!IsContinuation(text, position + 1))
        return 0;
    if (first >= 0xC2 && first <= 0xDF)
        return 2;
    if (!IsContinuation(text, position + 2))
        return 0;
    if (first >= 0xE0 && first <= 0xEF) {
        const bool isOverlong = first == 0xE0 && second < 0xA0;
        const bool isSurrogate = first == 0xED && second >= 0xA0;
        return isOverlong || isSurrogate ? 0 : 3;
    }
    if (first < 0xF0 || first > 0xF4 || !IsContinuation(text, position + 3))
        return 0;
    const bool isOverlong = first == 0xF0 && second < 0x90;
    const bool isBeyond = first == 0xF4 && second >= 0x90;
    return isOverlong || isBeyond ? 0 : 4;
}

void AppendEscaped(std::string& text, char byte)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    text += '%';
    text += digits[value >> 4U];
    text += digits[value & 0xFU];
}

/// Slashes stay: they part the names of a path.
void AppendEncoded(std::string& text, std::string_view bytes)
{
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t length = GetCharacterLength(bytes, i);
        const char byte = bytes[i];
        if (length > 1) {
            text += bytes.substr(i, length);
            i += length;
            continue;
        }
        if (length == 0 || byte == '%' || static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F)
            AppendEscaped(text, byte);
        else
            text += byte;
        ++i;
    }
}

std::string EncodeFolder(const std::string& name)
{
    std::string text;
    AppendEncoded(text, name);
    for (std::size_t i = text.find('/'); i != std::string::npos; i = text.find('/', i))
        text.replace(i, 1, "%2F");
    return text;
}

int GetDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

std::optional<std::string> Decode(std::string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes += text[i];
            continue;
        }
        if (i + 2 >= text.size() || GetDigit(text[i + 1]) < 0 || GetDigit(text[i + 2]) < 0)
            return std::nullopt;
        bytes += static_cast<char>(GetDigit(text[i + 1]) * 16 + GetDigit(text[i + 2]));
        i += 2;
    }
    return bytes;
}

} // namespace

std::string GetName(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

Place GetParent(const Place& place)
{
    const auto slash = place.path.rfind('/');
    return {place.folder, slash == std::string::npos ? "" : place.path.substr(0, slash)};
}

Place GetChild(const Place& directory, const std::string& name)
{
    return {directory.folder, directory.path.empty() ? name : directory.path + "/" + name};
}

bool IsBelow(const Place& place, const Place& directory)
{
    if (place.folder != directory.folder || place.path.size() <= directory.path.size())
        return false;
    return directory.path.empty() ||
           (place.path.starts_with(directory.path) && place.path[directory.path.size()] == '/');
}

bool IsFileName(std::string_view name) noexcept
{
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

bool IsFilePath(std::string_view path) noexcept
{
    while (true) {
        const auto slash = path.find('/');
        if (!IsFileName(path.substr(0, slash)))
            return false;
        if (slash == std::string_view::npos)
            return true;
        path.remove_prefix(slash + 1);
    }
}

Keys::Keys(const std::vector<std::string>& folderNames)
{
    for (const auto& name : folderNames)
        folders.push_back(EncodeFolder(name));
}

std::optional<Key> Keys::Parse(std::string_view text) const
{
    Key key;
    if (text.empty())
        return key;
    if (text.size() > maximumLength)
        return std::nullopt;
    const auto* const letter =
        std::ranges::find(letters, text.front(), &std::pair<char, NodeKind>::first);
    if (letter == letters.end())
        return std::nullopt;
    key.kind = letter->second;
    const auto slash = std::min(text.find('/'), text.size());
    if (slash > 1) {
        if (text[1] != '.')
            return std::nullopt;
        key.property = text.substr(2, slash - 2);
    }
    const bool isTransfer = key.kind == NodeKind::Transfer;
    if (isTransfer != (slash == text.size()))
        return std::nullopt;
    if (!isTransfer && !ParsePlace(text.substr(slash + 1), key))
        return std::nullopt;
    // One node has one key: an escape that is not needed would make a second one.
    if (Format(key) != text)
        return std::nullopt;
    return key;
}

bool Keys::ParsePlace(std::string_view text, Key& key) const
{
    const auto slash = std::min(text.find('/'), text.size());
    const auto folder = std::ranges::find(folders, text.substr(0, slash));
    if (folder == folders.end())
        return false;
    key.place.folder = static_cast<std::size_t>(folder - folders.begin());
    if (slash == text.size())
        return key.kind == NodeKind::Directory;
    const auto path = Decode(text.substr(slash + 1));
    if (!path || !IsFilePath(*path))
        return false;
    key.place.path = *path;
    return true;
}

std::string Keys::Format(const Key& key) const
{
    if (key.kind == NodeKind::FileSystem)
        return {};
    std::string text(1, GetLetter(key.kind));
    if (key.kind != NodeKind::Transfer) {
        text += '/';
        text += folders.at(key.place.folder);
        if (!key.place.path.empty()) {
            text += '/';
            AppendEncoded(text, key.place.path);
        }
    }
    if (text.size() + propertyRoom > maximumLength || key.property.size() + 1 > propertyRoom)
        return {};
    if (!key.property.empty())
        text.insert(1, "." + key.property);
    return text;
}

std::string Keys::MakePrefix(NodeKind kind, const Place& directory) const
{
    std::string prefix = Format({kind, directory, {}});
    if (!prefix.empty())
        prefix += '/';
    return prefix;
}

std::string Keys::FormatChild(const std::string& prefix, std::string_view name)
{
    std::string text = prefix;
    AppendEncoded(text, name);
    if (prefix.empty() || text.size() + propertyRoom > maximumLength)
        text.clear();
    return text;
}

} // namespace FileObjects
