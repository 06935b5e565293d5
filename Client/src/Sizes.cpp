#include "Sizes.h"

#include <algorithm>

namespace Client {

namespace {

constexpr std::uint32_t firstRead = 4096;
constexpr std::size_t filesAtOnce = 32;
constexpr std::uint64_t probesAtOnce = 32;
constexpr unsigned int firstExponent = 13; // twice the first read
constexpr unsigned int lastExponent = 62;

/// Asks at some positions if there is a byte.
class Probes
{
public:
    Probes(Caller& caller, std::uint32_t handle)
        : caller(caller)
        , handle(handle)
    {}

    void Add(std::uint64_t position)
    {
        caller.SetPosition(handle, position);
        const auto check = caller.GetPosition(handle);
        probes.push_back({position, check, caller.Read(handle, 1)});
    }

    /// Narrows the bounds of the size by the answers.
    void Narrow(std::uint64_t& atLeast, std::uint64_t& atMost)
    {
        for (const auto& probe : probes) {
            caller.AwaitAnswer(probe.check);
            caller.AwaitAnswer(probe.read);
            // A position that the system refuses is no byte of a file either.
            const bool isAt = probe.check->outcome.position == probe.position;
            if (isAt && !probe.read->outcome.GetBytes().empty())
                atLeast = std::max(atLeast, probe.position + 1);
            else
                atMost = std::min(atMost, probe.position);
        }
        probes.clear();
    }

private:
    struct Probe
    {
        std::uint64_t position;
        CallPointer check;
        CallPointer read;
    };

    Caller& caller;
    const std::uint32_t handle;
    std::vector<Probe> probes;
};

std::uint64_t FindLargeSize(Caller& caller, std::uint32_t handle)
{
    std::uint64_t atLeast = firstRead;
    std::uint64_t atMost = std::uint64_t{1} << (lastExponent + 1);
    Probes probes(caller, handle);
    for (unsigned int exponent = firstExponent; exponent <= lastExponent; ++exponent)
        probes.Add(std::uint64_t{1} << exponent);
    probes.Narrow(atLeast, atMost);
    while (atLeast < atMost) {
        const std::uint64_t range = atMost - atLeast;
        const std::uint64_t count = std::min(range, probesAtOnce);
        const std::uint64_t step = range / count;
        for (std::uint64_t i = 0; i < count; ++i)
            probes.Add(atLeast + i * step);
        probes.Narrow(atLeast, atMost);
    }
    return atLeast;
}

struct OpenFile
{
    CallPointer open;
    CallPointer read;
};

std::vector<std::optional<std::uint64_t>> FindSome(Caller& caller,
                                                   std::span<const std::string> paths)
{
    std::vector<OpenFile> files;
    OpenedFiles opened(caller);
    for (const auto& path : paths) {
        files.push_back({caller.Open(path, openForReading), nullptr});
        opened.Add(files.back().open);
    }
    caller.AwaitEvent(caller.Barrier());
    for (auto& file : files) {
        caller.AwaitAnswer(file.open);
        file.read = caller.Read(file.open->outcome.opened->GetNumber(), firstRead);
    }
    std::vector<std::optional<std::uint64_t>> sizes;
    for (auto& file : files) {
        caller.AwaitAnswer(file.read);
        const auto handle = file.open->outcome.opened->GetNumber();
        const auto length = file.read->outcome.GetBytes().size();
        if (!file.read->outcome.bytes)
            sizes.emplace_back();
        else if (length < firstRead)
            sizes.emplace_back(length);
        else
            sizes.emplace_back(FindLargeSize(caller, handle));
        if (file.read->outcome.bytes)
            caller.Close(handle);
    }
    caller.AwaitEvent(caller.Barrier()); // so that no more than these are open at a time
    opened.Release();
    return sizes;
}

} // namespace

std::vector<std::optional<std::uint64_t>> FindSizes(Caller& caller,
                                                    std::span<const std::string> paths)
{
    std::vector<std::optional<std::uint64_t>> sizes;
    for (std::size_t start = 0; start < paths.size(); start += filesAtOnce) {
        const auto part = paths.subspan(start, std::min(filesAtOnce, paths.size() - start));
        const auto found = caller.Repeat([&] { return FindSome(caller, part); });
        sizes.insert(sizes.end(), found.begin(), found.end());
    }
    return sizes;
}

std::uint64_t FindSize(Caller& caller, std::uint32_t handle)
{
    caller.SetPosition(handle, 0);
    const auto read = caller.Read(handle, firstRead);
    caller.AwaitAnswer(read);
    const auto length = read->outcome.GetBytes().size();
    return length < firstRead ? length : FindLargeSize(caller, handle);
}

} // namespace Client
