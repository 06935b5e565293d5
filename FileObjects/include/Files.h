#pragma once

#include "Caller.h"
#include "Folders.h"
#include "Keys.h"
#include "OpenFiles.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace FileObjects {

/// The methods of FileType (OPC 10000-20, 4.2). Any thread. All throw Core::StatusException.
class Files
{
public:
    using Bytes = std::vector<unsigned char>;

    /// The most bytes that one `Read` returns. A message of twice the size fits everywhere.
    static constexpr unsigned int maximumBlock = 1024 * 1024;

    /// The bits of an open mode.
    static constexpr unsigned char modeRead = 1;
    static constexpr unsigned char modeWrite = 2;
    static constexpr unsigned char modeEraseExisting = 4;
    static constexpr unsigned char modeAppend = 8;

    /// Both outlive this object.
    Files(const Folders& folders, OpenFiles& openFiles);

    [[nodiscard]] unsigned int Open(const Key& node, unsigned char mode, const Caller& caller);
    void Close(const Key& node, unsigned int handle, const Caller& caller);
    /// Returns nothing at the end of the file.
    [[nodiscard]] Bytes Read(const Key& node, unsigned int handle, int length,
                             const Caller& caller);
    void Write(const Key& node, unsigned int handle, const Bytes& data, const Caller& caller);
    [[nodiscard]] std::uint64_t GetPosition(const Key& node, unsigned int handle,
                                            const Caller& caller);
    /// Goes to the end of the file if it has no such position.
    void SetPosition(const Key& node, unsigned int handle, std::uint64_t position,
                     const Caller& caller);

    /// Gives a file that is open already its handle. The companion lives as long as it is open.
    [[nodiscard]] unsigned int Register(Descriptor file, const Key& node,
                                        const std::string& subject, unsigned char mode,
                                        const Caller& caller,
                                        std::shared_ptr<void> companion = nullptr);

private:
    const Folders& folders;
    OpenFiles& openFiles;
};

/// Closes a file whose handle has ended. Throws Core::StatusException if the system could not keep
/// what was written.
void CloseOpenFile(OpenFile& file);

[[nodiscard]] inline FileIdentity ToIdentity(const struct stat& state) noexcept
{
    return {state.st_dev, state.st_ino};
}

} // namespace FileObjects
