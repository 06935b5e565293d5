#include "Process/Process.h"

#include "Core/Exception.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Host {
namespace {

bool IsReadable(int descriptor, int milliseconds)
{
    pollfd waiting = {.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, milliseconds) == 1;
}

/// For a process of its own: ends it with 0 when a write to a pipe without a reader, and one beyond
/// the largest size of a file, are ordinary failures.
[[noreturn]] void WriteInVain()
{
    IgnoreFatalSignals();
    int ends[2] = {};
    if (pipe(ends) != 0)
        std::_Exit(1);
    close(ends[0]);
    const bool isBroken = write(ends[1], "x", 1) < 0 && errno == EPIPE;

    const rlimit limit = {.rlim_cur = 1, .rlim_max = 1};
    setrlimit(RLIMIT_FSIZE, &limit);
    char name[] = "/tmp/talvensor-host-test-XXXXXX";
    const int file = mkstemp(name);
    unlink(name);
    const bool isTooLarge = pwrite(file, "x", 1, 10) < 0 && errno == EFBIG;
    std::_Exit(isBroken && isTooLarge ? 0 : 2);
}

/// Returns the slice of the calling thread in nanoseconds; 0 if the kernel does not tell.
std::uint64_t GetSlice()
{
    struct
    {
        std::uint32_t size = 48;
        std::uint32_t policy = 0;
        std::uint64_t flags = 0;
        std::uint64_t niceAndPriority = 0;
        std::uint64_t runtime = 0;
        std::uint64_t deadlineAndPeriod[2] = {};
    } attributes;
    syscall(SYS_sched_getattr, 0, &attributes, sizeof(attributes), 0);
    return attributes.runtime;
}

TEST(ShortSlices, AreThoseOfAThreadAndOfThoseThatItStarts)
{
    const auto usual = GetSlice();
    if (usual == 0)
        GTEST_SKIP() << "this kernel has no slices that a thread can choose";
    std::uint64_t own = 0;
    std::uint64_t inherited = 0;
    std::thread([&] {
        AskForShortSlices();
        own = GetSlice();
        std::thread([&] { inherited = GetSlice(); }).join();
    }).join();
    EXPECT_LT(own, usual);
    EXPECT_EQ(inherited, own);
    EXPECT_EQ(GetSlice(), usual);
}

TEST(FatalSignals, BecomeOrdinaryFailures)
{
    EXPECT_EXIT(WriteInVain(), testing::ExitedWithCode(0), "");
}

TEST(TheDescriptorLimit, IsRaisedToTheHardOneLessThoseKeptForConnections)
{
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    auto lower = before;
    lower.rlim_cur = 256;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lower), 0);
    const auto raised = before.rlim_max - 64;
    EXPECT_EQ(RaiseDescriptorLimit(64), raised);
    rlimit after = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &after), 0);
    EXPECT_EQ(after.rlim_cur, raised);
    {
        const KeptDescriptors kept;
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &after), 0);
        EXPECT_EQ(after.rlim_cur, before.rlim_max);
    }
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &after), 0);
    EXPECT_EQ(after.rlim_cur, raised);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(CoreFiles, AreSwitchedOff)
{
    const auto check = [] {
        DisableCoreFiles();
        rlimit limit = {.rlim_cur = 1, .rlim_max = 1};
        getrlimit(RLIMIT_CORE, &limit);
        std::_Exit(limit.rlim_cur == 0 && limit.rlim_max == 0 ? 0 : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

bool IsOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(InheritedDescriptors, AreClosedButForTheStandardOnesWhichAreAlwaysThere)
{
    const auto check = [] {
        const int inherited = open("/dev/null", O_RDONLY); // NOLINT: as others do
        dup2(inherited, 200);
        close(STDIN_FILENO);
        close(STDERR_FILENO);
        const bool isSettled = SettleDescriptors();
        std::_Exit(isSettled && IsOpen(STDIN_FILENO) && IsOpen(STDOUT_FILENO) &&
                           IsOpen(STDERR_FILENO) && !IsOpen(STDERR_FILENO + 1) &&
                           !IsOpen(inherited) && !IsOpen(200)
                       ? 0
                       : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(AProcess, RefusesInspection)
{
    const auto check = [] {
        const bool wasOpen = prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 1;
        RefuseInspection();
        std::_Exit(wasOpen && prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(TheMachinesMemory, IsKnown)
{
    const auto pages = sysconf(_SC_PHYS_PAGES);
    EXPECT_GT(GetMachineMemory(), 1U << 20U);
    EXPECT_LE(GetMachineMemory(), static_cast<std::uint64_t>(pages) *
                                      static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
}

TEST(AMemoryGauge, SeesMemoryThatIsUsedAndGivenBack)
{
    constexpr std::size_t size = 64 << 20U;
    const MemoryGauge gauge;
    const auto before = gauge.Read();
    auto memory = std::make_unique<std::vector<char>>(size, 'x');
    EXPECT_GT(gauge.Read(), before + size / 2);
    EXPECT_GT(memory->back(), 0);
}

TEST(StopSignal, AsksToStop)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const Signals stop;
        EXPECT_FALSE(Signals::GetSignal());
        EXPECT_FALSE(IsReadable(stop.GetDescriptor(), 0));
        raise(signal);
        EXPECT_TRUE(IsReadable(stop.GetDescriptor(), 10'000));
        EXPECT_EQ(Signals::GetSignal(), signal);
    }
}

TEST(StopSignal, WakesAThreadThatWaitsForIt)
{
    const Signals stop;
    bool isAwake = false;
    {
        const std::jthread waiting([&] { isAwake = IsReadable(stop.GetDescriptor(), 60'000); });
        raise(SIGTERM);
    }
    EXPECT_TRUE(isAwake);
}

[[noreturn]] void RaiseTwice(int first, int second)
{
    const Signals stop;
    raise(first);
    raise(second);
    std::_Exit(1);
}

TEST(StopSignal, EndsTheProcessAtOnceTheSecondTime)
{
    EXPECT_EXIT(RaiseTwice(SIGTERM, SIGTERM), testing::ExitedWithCode(128 + SIGTERM), "");
    EXPECT_EXIT(RaiseTwice(SIGTERM, SIGINT), testing::ExitedWithCode(128 + SIGINT), "");
}

TEST(StopSignal, TakesItsOldCourseOnceNobodyListens)
{
    const auto stopListening = [] {
        {
            const Signals stop;
        }
        raise(SIGTERM);
        std::_Exit(1);
    };
    EXPECT_EXIT(stopListening(), testing::KilledBySignal(SIGTERM), "");
}

TEST(StopSignal, HasOneListener)
{
    const Signals stop;
    EXPECT_THROW(const Signals second, Core::InvalidStateException);
    raise(SIGTERM);
    EXPECT_TRUE(IsReadable(stop.GetDescriptor(), 10'000));
}

} // namespace
} // namespace Host
