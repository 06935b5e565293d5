#include "FileTypes.h"

#include <boost/filesystem.hpp>

namespace FileSystem {

namespace {

namespace fs = boost::filesystem;

} // namespace

fs::file_type GetFileType(const fs::path& path) noexcept
{
    boost::system::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    return error && type != fs::file_not_found ? fs::status_error : type;
}

bool PathExists(const fs::path& path) noexcept
{
    const fs::file_type type = GetFileType(path);
    return type != fs::status_error && type != fs::file_not_found;
}

} // namespace FileSystem
