#pragma once

#include "Client/FileSystem.h"
#include "Jobs.h"

#include <cstdint>
#include <optional>
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

    std::string written; ///< the remote path that it is written to until it is whole
    /// The mode of the file that it takes the place of.
    std::optional<std::uint32_t> modeBefore;
    std::optional<std::uint32_t> mode; ///< at the source, if it is to be kept

    [[nodiscard]] bool IsInPlace() const noexcept { return written == remote; }
};

struct UploadDirectory
{
    std::string remote;
    FileTime time;
    std::optional<std::uint32_t> mode = {}; ///< that a new one gets, if not the host's default
    bool isThere = false;
};

/// The files and directories of an upload.
struct UploadPlan
{
    std::vector<UploadDirectory> directories; ///< a directory comes before what is in it
    std::vector<UploadFile> small;            ///< each goes up in one call
    std::vector<UploadFile> large;            ///< each goes up in blocks
    bool isPart = false;                      ///< of a tree; then others set all modes afterwards
};

/// A file could not be written: finds out if others will fail as well.
void LookForReason(Transfer& transfer, const UploadFile& file, Step step) noexcept;

/// Does one file as DoFile does, unless it is known that it cannot be written.
template <typename Function>
void DoUpload(Transfer& transfer, const UploadFile& file, const bool& hasBegun,
              const Function& function)
{
    DoFile(transfer, file.remote, file.written, hasBegun, [&] {
        if (const auto obstacle = transfer.reasons.FindObstacle(file.remote); obstacle && !hasBegun)
            throw FileFailed(MakeReasonFailure(file.remote, Step::Open, *obstacle));
        try {
            function();
        } catch (const FileFailed& failed) {
            if (failed.GetFailure().side == Side::Remote)
                LookForReason(transfer, file, failed.GetFailure().step);
            throw;
        }
    });
}

/// Finds those of a tree. Tells the tally of them.
[[nodiscard]] UploadPlan PlanUpload(Transfer& transfer, const TreePart& part);

/// Finds them at the sources. Tells the tally of them, and of what is left out.
[[nodiscard]] UploadPlan PlanUpload(Transfer& transfer, const std::vector<TransferItem>& items);

} // namespace Client
