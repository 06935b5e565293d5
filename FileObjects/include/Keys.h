#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace FileObjects {

/// A file or directory: a folder of the host by its number, and a path below it without slashes at
/// its ends. The folder itself has an empty path.
struct Place
{
    std::size_t folder = 0;
    std::string path;

    friend bool operator==(const Place&, const Place&) = default;
};

/// Returns the last part of a path, and the path before it.
[[nodiscard]] std::string GetName(const std::string& path);
[[nodiscard]] Place GetParent(const Place& place);
[[nodiscard]] Place GetChild(const Place& directory, const std::string& name);
/// True for a place somewhere below a directory, but not for the directory itself.
[[nodiscard]] bool IsBelow(const Place& place, const Place& directory);

/// True for names that a file can have: not empty, no slash, no zero, neither "." nor "..".
[[nodiscard]] bool IsFileName(std::string_view name) noexcept;

/// True for names of files with slashes between them.
[[nodiscard]] bool IsFilePath(std::string_view path) noexcept;

enum class NodeKind
{
    FileSystem, ///< the object of the behaviour, above all folders
    Directory,
    File,
    Transfer,  ///< the object that makes temporary files
    Temporary, ///< a temporary file; its path is a text without meaning
};

/// A node of the file system. Its text, the key, is what the host knows it by.
struct Key
{
    NodeKind kind = NodeKind::FileSystem;
    Place place;
    std::string property; ///< empty: the object

    friend bool operator==(const Key&, const Key&) = default;
};

/// Turns nodes into texts and back. A node has one text: everything else is no key. Texts are valid
/// UTF-8 without control characters, whatever bytes the names have.
///
/// "" is the file system and "t" the transfer object; "d/FOLDER/PATH", "f/FOLDER/PATH" and
/// "x/FOLDER/NUMBER" are directories, files and temporary files. A property has its name behind the
/// letter: "f.Size/FOLDER/PATH". Bytes that are not allowed in a text, and "%", are written as
/// "%XX", so is "/" in the name of a folder.
class Keys
{
public:
    static constexpr std::size_t maximumLength = 4096;

    explicit Keys(const std::vector<std::string>& folderNames);

    /// Returns nothing for a text that is no key. Whether a property exists for its kind is not
    /// checked.
    [[nodiscard]] std::optional<Key> Parse(std::string_view text) const;

    /// Returns an empty text for a node that can have no key since it would be too long.
    [[nodiscard]] std::string Format(const Key& key) const;

    /// Return the same for many children of one kind in one directory, part by part.
    [[nodiscard]] std::string MakePrefix(NodeKind kind, const Place& directory) const;
    [[nodiscard]] static std::string FormatChild(const std::string& prefix, std::string_view name);

private:
    [[nodiscard]] bool ParsePlace(std::string_view text, Key& key) const;

    std::vector<std::string> folders; // encoded
};

} // namespace FileObjects
