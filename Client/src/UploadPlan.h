#pragma once

#include "Client/FileSystem.h"
#include "Jobs.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Client {

struct UploadFile
{
    std::string local;
    std::string remote;
    std::uint64_t size = 0;
    FileTime time;
    Permissions permissions;
    bool isWhole = false; ///< an earlier transfer has finished it; only to be compared
};

struct UploadDirectory
{
    std::string remote;
    FileTime time;
    bool isThere = false;
};

/// The files and directories of an upload.
struct UploadPlan
{
    std::vector<UploadDirectory> directories; ///< a directory comes before what is in it
    std::vector<UploadFile> small;            ///< each goes up in one call
    std::vector<UploadFile> large;            ///< each goes up in blocks
};

/// Finds them at the sources. Tells the tally of them, and of what is left out.
[[nodiscard]] UploadPlan PlanUpload(Transfer& transfer, const std::vector<TransferItem>& items);

} // namespace Client
