#include "TemporaryFolder.h"

#include "Text.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace Demo {

TemporaryFolder::TemporaryFolder()
{
    std::string name = std::filesystem::temp_directory_path() / "talvensor-demo-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(),
                                "Cannot make the folder " + Quote(name));
    path = name;
}

TemporaryFolder::~TemporaryFolder()
{
    if (isKept)
        return;
    std::error_code error;
    std::filesystem::remove_all(path, error);
    if (error)
        PrintLine("cannot remove " + Quote(path) + ": " + error.message());
}

} // namespace Demo
