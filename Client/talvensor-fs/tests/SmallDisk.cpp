#include "SmallDisk.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

namespace CliTest {

SmallDisk::SmallDisk()
    : isMounted(unshare(CLONE_NEWNS) == 0 &&
                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                mount("tmpfs", folder.GetPath().c_str(), "tmpfs", 0, "size=1m,mode=0777") == 0)
{}

SmallDisk::~SmallDisk()
{
    if (isMounted)
        umount2(folder.GetPath().c_str(), MNT_DETACH);
}

void SmallDisk::Limit(pid_t host) const
{
    const rlimit limit{size, size};
    if (!isMounted) {
        ASSERT_EQ(prlimit(host, RLIMIT_FSIZE, &limit, nullptr), 0);
    }
}

} // namespace CliTest
