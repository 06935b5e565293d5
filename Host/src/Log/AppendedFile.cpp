#include "Log/AppendedFile.h"

#include "Support/SystemError.h"
#include "Support/WriteAll.h"

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

void AppendedFile::Write(std::string_view lines)
{
    const auto written = Support::WriteAll(file.Get(), lines);
    if (written > 0)
        isLineOpen = lines[written - 1] != '\n';
    if (written < lines.size())
        Support::ThrowSystemError("cannot write to '" + path.string() + "'");
}

} // namespace Host
