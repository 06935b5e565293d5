#pragma once

#include "Jobs.h"
#include "UploadPlan.h"

#include <open62541/types.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// Chooses the names that files are written to, where the server can rename them afterwards. Tells
/// the tally of those that cannot be written and takes them out. Throws what ObjectCaller throws.
void ChooseNames(Transfer& transfer, UploadPlan& plan);

/// Returns the permissions that are sent with the content: none with a part, which gets its mode
/// with its name.
[[nodiscard]] UA_Byte MakeFlags(const UploadFile& file) noexcept;

/// A file that is whole under the name that it was written to.
struct WrittenFile
{
    const UploadFile* file = nullptr;
    std::uint64_t size = 0;
    bool hasTime = true; ///< that of the source
};

/// Gives the files their own names, and the permissions of those in whose place they come. Returns
/// for each what has failed. Throws what ObjectCaller throws but CallsLost.
[[nodiscard]] std::vector<std::optional<Failure>> GiveNames(Transfer& transfer,
                                                            std::span<const WrittenFile> files);

/// Likewise, one file. Throws FileFailed too.
void GiveName(Transfer& transfer, const WrittenFile& file);

/// Returns true for a file that is written under another name and that not everybody may read:
/// neither may its part be read, which is made with its permissions then.
[[nodiscard]] bool IsProtected(const UploadFile& file) noexcept;

/// Returns the name of the directory that MakeParts may make beside the part of a file, always the
/// same. It is deleted again unless the connection is lost meanwhile.
[[nodiscard]] std::string GetClosedName(const UploadFile& file);

/// Makes the parts of files, empty and with permissions to read and write for nobody who may not
/// read or write the files; in the place of those that are there. Nobody can open them before they
/// have these. Returns for each what has failed. Throws what ObjectCaller throws.
[[nodiscard]] std::vector<std::optional<Failure>>
MakeParts(Transfer& transfer, Caller& caller, std::span<const UploadFile* const> files);

/// Returns an operation that makes the part of a file so. Empty where that is not needed. All
/// arguments must outlive it. It throws FileFailed and what ObjectCaller throws.
[[nodiscard]] std::function<void()> MakePreparation(Transfer& transfer, Caller& caller,
                                                    const UploadFile& file);

} // namespace Client
