#include "DownloadPlaces.h"

#include <fcntl.h>

namespace Client {

DownloadPlace DownloadPlaces::Find(const DownloadFile& job) const
{
    DownloadPlace place;
    place.directory = OpenDirectory(job);
    if (!place.directory.IsOpen())
        FailLocally(job.local, Step::Open);
    place.leaf = GetLeaf(job.tree ? job.relative : job.local);
    place.part = FindPartLeaf(job.local, place.leaf);
    return place;
}

Support::Descriptor DownloadPlaces::OpenDirectory(const DownloadFile& job) const
{
    if (!job.tree)
        return Support::Descriptor(
            open(GetDirectory(job.local).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Support::Lock lock(mutex);
    return Support::Descriptor(fcntl(job.tree->OpenParent(job.relative), F_DUPFD_CLOEXEC, 0));
}

/// A file of the transfer may have the name that the part of another would have.
std::string DownloadPlaces::FindPartLeaf(const std::string& local, const std::string& leaf) const
{
    const std::string directory = GetDirectory(NormalizeLocal(local));
    for (unsigned int number = 1;; ++number) {
        std::string part = GetPartLeaf(leaf, number);
        std::string path = directory == "/" ? directory : directory + "/";
        path += part;
        if (!plan.targets.contains(path))
            return part;
    }
}

bool IsWhole(const Transfer& transfer, const DownloadFile& job, const DownloadPlace& place)
{
    return transfer.skipsWhole && transfer.options.setsTimes && job.time &&
           FindLocalTime(place.directory.Get(), place.leaf) == job.time;
}

} // namespace Client
