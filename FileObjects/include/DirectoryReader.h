#pragma once

#include "Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace FileObjects {

/// An entry as the file system lists it.
struct DirectoryEntry
{
    std::string_view name;  ///< valid until the next entry is taken
    unsigned char type = 0; ///< DT_REG, DT_DIR, DT_LNK ...; DT_UNKNOWN where only stat tells
    std::uint64_t next = 0; ///< the position behind this entry
};

/// Reads the entries of a directory in the file system's own order, without "." and "..".
class DirectoryReader
{
public:
    /// `directory` is open for reading; `subject` names it in messages.
    DirectoryReader(const Descriptor& directory, std::string subject);

    /// Goes on behind an entry that any reader of this directory has found, at any time: the file
    /// system finds the place again even when entries have come and gone. 0 is the beginning.
    void Seek(std::uint64_t position);

    /// Returns false at the end. Throws Core::StatusException.
    [[nodiscard]] bool Next(DirectoryEntry& entry);

private:
    [[nodiscard]] bool Fill();

    const Descriptor& directory;
    std::string subject;
    std::vector<std::uint64_t> buffer; // aligned as the kernel's records are
    std::size_t filled = 0;
    std::size_t offset = 0;
};

} // namespace FileObjects
