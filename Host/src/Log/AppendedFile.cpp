#include "Log/AppendedFile.h"

#include "Support/SystemError.h"

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace Host {

AppendedFile::AppendedFile(std::filesystem::path path, Support::Descriptor descriptor)
    : path(std::move(path))
    , file(std::move(descriptor))
{}

void AppendedFile::Append(std::string_view lines)
{
    const Support::Lock lock(mutex);
    if (isLineOpen)
        Write("\n");
    Write(lines);
}

void AppendedFile::Replace(Support::Descriptor descriptor)
{
    const Support::Lock lock(mutex);
    file = std::move(descriptor);
    isLineOpen = false;
}

void AppendedFile::Write(std::string_view rest)
{
    while (!rest.empty()) {
        const auto written = write(file.Get(), rest.data(), rest.size());
        if (written < 0 && errno != EINTR)
            Support::ThrowSystemError("cannot write to '" + path.string() + "'");
        if (written <= 0)
            continue;
        const auto size = static_cast<std::size_t>(written);
        isLineOpen = rest[size - 1] != '\n';
        rest.remove_prefix(size);
    }
}

} // namespace Host
