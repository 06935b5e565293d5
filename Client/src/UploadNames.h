#pragma once

#include "Jobs.h"
#include "UploadPlan.h"

#include <open62541/types.h>

#include <functional>
#include <optional>
#include <span>
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
/// neither may its part be read, which is protected before anything is written to it.
[[nodiscard]] bool IsProtected(const UploadFile& file) noexcept;

/// Lets nobody else read or write parts, which are there and empty. Returns for each what has
/// failed. Throws what ObjectCaller throws but CallsLost.
[[nodiscard]] std::vector<std::optional<Failure>> Protect(Transfer& transfer,
                                                          std::span<const UploadFile* const> files);

/// Returns an operation that protects the part of a file when it is there and empty. Empty where
/// that is not needed. Both arguments must outlive it. It throws FileFailed and what ObjectCaller
/// throws.
[[nodiscard]] std::function<void()> MakePreparation(Transfer& transfer, const UploadFile& file);

} // namespace Client
