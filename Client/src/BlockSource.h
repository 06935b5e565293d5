#pragma once

#include "Client/FileSystem.h"
#include "ResumableTransfer.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Client {

/// The source of an upload in blocks. Asked in order, except after a lost connection.
class BlockSource
{
public:
    BlockSource() = default;
    BlockSource(const BlockSource&) = delete;
    BlockSource& operator=(const BlockSource&) = delete;
    virtual ~BlockSource() = default;

    /// Fills the buffer, and returns fewer bytes only at the end: 0 behind it. Throws FileFailed.
    virtual std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) = 0;
    /// Returns true if it can be read from any position.
    [[nodiscard]] virtual bool CanSeek() const noexcept = 0;
};

class FileSource final : public BlockSource
{
public:
    /// Tells the transfer of what is read. All must outlive it.
    FileSource(int file, const std::string& name, ResumableTransfer& transfer)
        : file(file)
        , name(name)
        , transfer(transfer)
    {}

    std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) override;
    [[nodiscard]] bool CanSeek() const noexcept override { return true; }

private:
    const int file;
    const std::string& name;
    ResumableTransfer& transfer;
};

class StreamSource final : public BlockSource
{
public:
    /// `source` must outlive it.
    explicit StreamSource(const FileSystem::ByteSource& source)
        : source(source)
    {}

    std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) override;
    [[nodiscard]] bool CanSeek() const noexcept override { return false; }

private:
    const FileSystem::ByteSource& source;
    bool isOver = false;
};

} // namespace Client
