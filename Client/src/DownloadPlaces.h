#pragma once

#include "DownloadPlan.h"

#include <Support/Descriptor.h>
#include <Support/Mutex.h>

#include <string>

namespace Client {

/// A file's place on this side; the directory is closed with it.
struct DownloadPlace
{
    Support::Descriptor directory;
    std::string leaf;
    std::string part; ///< its name until it is whole
};

/// Finds the places of the files of a plan. Any thread.
class DownloadPlaces
{
public:
    /// The plan must outlive it, and its targets stay.
    explicit DownloadPlaces(const DownloadPlan& plan) noexcept
        : plan(plan)
    {}

    /// Throws FileFailed.
    [[nodiscard]] DownloadPlace Find(const DownloadFile& job) const EXCLUDES(mutex);

private:
    [[nodiscard]] Support::Descriptor OpenDirectory(const DownloadFile& job) const EXCLUDES(mutex);
    [[nodiscard]] std::string FindPartLeaf(const std::string& local, const std::string& leaf) const;

    const DownloadPlan& plan;
    /// Of the plan's trees, each of which keeps the directory that was opened last.
    mutable Support::Mutex mutex;
};

/// Returns true if an earlier transfer has finished the file, and it is to be left as it is.
[[nodiscard]] bool IsWhole(const Transfer& transfer, const DownloadFile& job,
                           const DownloadPlace& place);

} // namespace Client
