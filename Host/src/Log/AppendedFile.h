#pragma once

#include "Support/Descriptor.h"
#include "Support/Mutex.h"

#include <filesystem>
#include <string_view>

namespace Host {

/// A file to which the host appends lines as long as it runs. Any thread may call any operation.
class AppendedFile
{
public:
    /// `descriptor` was opened for appending, `path` is its name in messages.
    AppendedFile(std::filesystem::path path, Support::Descriptor descriptor);

    /// Appends whole lines. After a failure the next call first ends the line that was written in
    /// part. Throws std::system_error, for example if the disk is full.
    void Append(std::string_view lines) EXCLUDES(mutex);

    /// Goes on in another file; the one before is closed.
    void Replace(Support::Descriptor descriptor) EXCLUDES(mutex);

private:
    void Write(std::string_view lines) REQUIRES(mutex);

    const std::filesystem::path path;
    Support::Mutex mutex; // keeps the parts of a line together
    Support::Descriptor file GUARDED_BY(mutex);
    bool isLineOpen GUARDED_BY(mutex) = false;
};

} // namespace Host
