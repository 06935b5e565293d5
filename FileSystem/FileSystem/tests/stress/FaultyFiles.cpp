#include "FaultyFiles.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <random>
#include <thread>
#include <unistd.h>
#include <unordered_map>

namespace FaultyFiles {

namespace {

/// Returns the next definition of a function in the order of look-up: a sanitizer's or libc's.
template <typename Function>
Function* FindNext(const char* name) noexcept
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

struct AtomicRates
{
    std::atomic<unsigned int> openFails = 0;
    std::atomic<unsigned int> readFails = 0;
    std::atomic<unsigned int> writeFails = 0;
    std::atomic<unsigned int> closeFails = 0;
    std::atomic<unsigned int> slowed = 0;
};

struct AtomicCounts
{
    std::atomic<std::uint64_t> opens = 0;
    std::atomic<std::uint64_t> reads = 0;
    std::atomic<std::uint64_t> writes = 0;
    std::atomic<std::uint64_t> closes = 0;
    std::atomic<std::uint64_t> openFailures = 0;
    std::atomic<std::uint64_t> readFailures = 0;
    std::atomic<std::uint64_t> writeFailures = 0;
    std::atomic<std::uint64_t> closeFailures = 0;
    std::atomic<std::uint64_t> slowed = 0;
    std::atomic<std::uint64_t> usesOfClosed = 0;
    std::atomic<std::uint64_t> closesOfUsed = 0;
};

AtomicRates rates;
AtomicCounts counts;
std::atomic<std::uint64_t> seed = 1;
std::atomic<std::uint64_t> threadsSeen = 0;

bool Happens(const std::atomic<unsigned int>& rate)
{
    constexpr unsigned int million = 1'000'000;
    thread_local std::mt19937_64 engine(seed.load() + threadsSeen.fetch_add(1));
    const unsigned int limit = rate.load(std::memory_order_relaxed);
    return limit != 0 && engine() % million < limit;
}

/// Counts a call that is to fail.
bool Fails(const std::atomic<unsigned int>& rate, std::atomic<std::uint64_t>& count)
{
    if (!Happens(rate))
        return false;
    ++count;
    return true;
}

void SlowDown()
{
    if (!Fails(rates.slowed, counts.slowed))
        return;
    constexpr std::array<unsigned int, 8> microseconds{1, 5, 20, 50, 100, 200, 500, 2000};
    thread_local unsigned int turn = 0;
    std::this_thread::sleep_for(
        std::chrono::microseconds(microseconds.at(turn++ % microseconds.size())));
}

/// Prints at once, the first time, since the process may not reach its end.
void Count(std::atomic<std::uint64_t>& violations, const char* text)
{
    if (violations++ == 0)
        static_cast<void>(::write(STDERR_FILENO, text, std::strlen(text)));
}

void CountUseOfClosed()
{
    Count(counts.usesOfClosed, "a stream was used that is not open\n");
}

/// The streams that are open, and how many calls are inside each.
class OpenStreams
{
public:
    void Add(FILE* stream)
    {
        const std::lock_guard lock(mutex);
        users[stream] = 0;
    }

    /// Returns false for a stream that is not open, and counts it.
    bool Enter(FILE* stream)
    {
        const std::lock_guard lock(mutex);
        const auto found = users.find(stream);
        if (found == users.end())
            CountUseOfClosed();
        else
            ++found->second;
        return found != users.end();
    }

    void Leave(FILE* stream)
    {
        const std::lock_guard lock(mutex);
        const auto found = users.find(stream);
        if (found != users.end() && found->second > 0)
            --found->second;
    }

    bool Remove(FILE* stream)
    {
        const std::lock_guard lock(mutex);
        const auto found = users.find(stream);
        if (found == users.end()) {
            CountUseOfClosed();
            return false;
        }
        if (found->second != 0)
            Count(counts.closesOfUsed, "a stream was closed while a call was inside\n");
        users.erase(found);
        return true;
    }

    std::size_t GetSize()
    {
        const std::lock_guard lock(mutex);
        return users.size();
    }

private:
    std::mutex mutex;
    std::unordered_map<FILE*, unsigned int> users; // guarded by mutex
};

/// Never destroyed, since streams are closed until the very end of the process.
OpenStreams& GetOpenStreams()
{
    static auto* const streams = new OpenStreams;
    return *streams;
}

/// True for the process's own streams, which were never opened here.
bool IsStandard(FILE* stream)
{
    return stream == stdin || stream == stdout || stream == stderr;
}

/// One call inside a stream.
class Use
{
public:
    explicit Use(FILE* stream)
        : stream(stream)
        , standard(IsStandard(stream))
        , open(standard || GetOpenStreams().Enter(stream))
    {}
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use()
    {
        if (open && !standard)
            GetOpenStreams().Leave(stream);
    }

    [[nodiscard]] bool IsOpen() const noexcept { return open; }
    [[nodiscard]] bool IsOfStandard() const noexcept { return standard; }

private:
    FILE* stream;
    bool standard;
    bool open;
};

/// Fails a call on a closed stream, which keeps the evidence.
template <typename Result>
Result Refuse(Result result)
{
    errno = EBADF;
    return result;
}

template <typename Result>
Result Break(Result result)
{
    errno = EIO;
    return result;
}

FILE* Open(FILE* (*next)(const char*, const char*), const char* path, const char* mode)
{
    ++counts.opens;
    SlowDown();
    if (Fails(rates.openFails, counts.openFailures))
        return Break<FILE*>(nullptr);
    FILE* const stream = next(path, mode);
    if (stream != nullptr)
        GetOpenStreams().Add(stream);
    return stream;
}

} // namespace

void SetRates(const Rates& newRates)
{
    rates.openFails = newRates.openFails;
    rates.readFails = newRates.readFails;
    rates.writeFails = newRates.writeFails;
    rates.closeFails = newRates.closeFails;
    rates.slowed = newRates.slowed;
}

void SetSeed(std::uint64_t newSeed)
{
    seed = newSeed;
}

Counts GetCounts()
{
    return {.opens = counts.opens,
            .reads = counts.reads,
            .writes = counts.writes,
            .closes = counts.closes,
            .openFailures = counts.openFailures,
            .readFailures = counts.readFailures,
            .writeFailures = counts.writeFailures,
            .closeFailures = counts.closeFailures,
            .slowed = counts.slowed,
            .streamsOpen = GetOpenStreams().GetSize(),
            .usesOfClosed = counts.usesOfClosed,
            .closesOfUsed = counts.closesOfUsed};
}

} // namespace FaultyFiles

// NOLINTBEGIN(readability-identifier-naming): they have the names of the functions they replace.
#define TALVENSOR_INTERPOSED extern "C" __attribute__((visibility("default")))

TALVENSOR_INTERPOSED FILE* fopen(const char* path, const char* mode)
{
    using namespace FaultyFiles;
    static auto* const next = FindNext<FILE*(const char*, const char*)>("fopen");
    return Open(next, path, mode);
}

// The standard library's streams open files by this call and close them by fclose.
TALVENSOR_INTERPOSED FILE* fopen64(const char* path, const char* mode)
{
    using namespace FaultyFiles;
    static auto* const next = FindNext<FILE*(const char*, const char*)>("fopen64");
    return Open(next, path, mode);
}

TALVENSOR_INTERPOSED std::size_t fread(void* data, std::size_t size, std::size_t count,
                                       FILE* stream)
{
    using namespace FaultyFiles;
    static auto* const next =
        FindNext<std::size_t(void*, std::size_t, std::size_t, FILE*)>("fread");
    ++counts.reads;
    const Use use(stream);
    if (!use.IsOpen())
        return Refuse<std::size_t>(0);
    SlowDown();
    if (Fails(rates.readFails, counts.readFailures))
        return Break<std::size_t>(0);
    return next(data, size, count, stream);
}

TALVENSOR_INTERPOSED std::size_t fwrite(const void* data, std::size_t size, std::size_t count,
                                        FILE* stream)
{
    using namespace FaultyFiles;
    static auto* const next =
        FindNext<std::size_t(const void*, std::size_t, std::size_t, FILE*)>("fwrite");
    const Use use(stream);
    if (use.IsOfStandard())
        return next(data, size, count, stream);
    ++counts.writes;
    if (!use.IsOpen())
        return Refuse<std::size_t>(0);
    SlowDown();
    // A failing write takes half of its bytes, as a full disk may.
    if (Fails(rates.writeFails, counts.writeFailures))
        return Break(next(data, size, count / 2, stream));
    return next(data, size, count, stream);
}

TALVENSOR_INTERPOSED int fseek(FILE* stream, long offset, int whence)
{
    using namespace FaultyFiles;
    static auto* const next = FindNext<int(FILE*, long, int)>("fseek");
    const Use use(stream);
    return use.IsOpen() ? next(stream, offset, whence) : Refuse(-1);
}

TALVENSOR_INTERPOSED long ftell(FILE* stream)
{
    using namespace FaultyFiles;
    static auto* const next = FindNext<long(FILE*)>("ftell");
    const Use use(stream);
    return use.IsOpen() ? next(stream) : Refuse(-1L);
}

TALVENSOR_INTERPOSED int fclose(FILE* stream)
{
    using namespace FaultyFiles;
    static auto* const next = FindNext<int(FILE*)>("fclose");
    if (IsStandard(stream))
        return next(stream);
    ++counts.closes;
    if (!GetOpenStreams().Remove(stream))
        return Refuse(EOF);
    SlowDown();
    const int result = next(stream);
    return Fails(rates.closeFails, counts.closeFailures) ? Break(EOF) : result;
}
// NOLINTEND(readability-identifier-naming)
