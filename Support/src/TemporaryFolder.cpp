#include "Support/TemporaryFolder.h"

#include "Support/SystemError.h"

#include <cstdlib>
#include <fstream>
#include <system_error>

namespace Support {

TemporaryFolder::TemporaryFolder()
    : TemporaryFolder(std::filesystem::temp_directory_path())
{}

TemporaryFolder::TemporaryFolder(const std::filesystem::path& parent)
{
    auto name = (parent / "talvensor-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        ThrowSystemError("cannot create a folder in '" + parent.string() + "'");
    path = name;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code error; // a rest in the temporary folder does no harm
    if (!isKept)
        std::filesystem::remove_all(path, error);
}

std::filesystem::path TemporaryFolder::MakeFolder(const std::string& name) const
{
    std::filesystem::create_directories(path / name);
    return path / name;
}

std::filesystem::path TemporaryFolder::MakeFile(const std::string& name,
                                                const std::string& content) const
{
    std::ofstream stream(path / name, std::ios::binary);
    stream << content;
    if (!stream.flush())
        ThrowSystemError("cannot write '" + (path / name).string() + "'");
    return path / name;
}

} // namespace Support
