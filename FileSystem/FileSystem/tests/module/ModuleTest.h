#pragma once

#include "LoadedModule.h"
#include "TemporaryFolder.h"
#include "Waiting.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>

namespace FileSystemTests {

/// The contents of an acknowledgement.
using Ack = std::pair<unsigned int, unsigned int>;

inline Ack ToAck(const Core::Embedding::Event& event)
{
    EXPECT_EQ(TypeNumber(event), ackEvent);
    return {OwnField(event, "FileHandle").Get<unsigned int>(),
            OwnField(event, "Result").Get<unsigned int>()};
}

inline std::vector<Ack> ToAcks(const Events& events)
{
    std::vector<Ack> acks;
    for (const auto& event : events)
        acks.push_back(ToAck(*event));
    return acks;
}

/// One entry of a listing.
struct Entry
{
    std::string path;
    Core::DateTime time;
    bool isDirectory = false;

    friend bool operator<(const Entry& left, const Entry& right) { return left.path < right.path; }
};

inline std::vector<Entry> ToEntries(const Core::Embedding::Event& event)
{
    EXPECT_EQ(TypeNumber(event), listResultEvent);
    std::vector<Entry> entries;
    for (const auto& item : OwnField(event, "Content").Get<std::vector<Core::Struct>>()) {
        EXPECT_EQ(item.GetDataTypeId(), LoadedModule::MakeTypeId(50));
        const auto& fields = item.GetFields();
        EXPECT_EQ(fields.size(), 3U);
        entries.push_back({fields.at(0).Get<std::string>(), fields.at(1).Get<Core::DateTime>(),
                           fields.at(2).Get<bool>()});
    }
    return entries;
}

inline std::vector<std::string> ToPaths(const std::vector<Entry>& entries)
{
    std::vector<std::string> paths;
    paths.reserve(entries.size());
    for (const auto& entry : entries)
        paths.push_back(entry.path);
    return paths;
}

/// A named pipe in a folder.
class NamedPipe
{
public:
    explicit NamedPipe(std::string where)
        : path(std::move(where))
    {
        if (::mkfifo(path.c_str(), 0666) != 0)
            throw std::system_error(errno, std::generic_category(), "mkfifo " + path);
    }
    [[nodiscard]] const std::string& GetPath() const noexcept { return path; }

private:
    std::string path;
};

class Descriptor
{
public:
    Descriptor(const std::string& path, int flags)
        : number(::open(path.c_str(), flags | O_CLOEXEC))
    {
        if (number < 0)
            throw std::system_error(errno, std::generic_category(), "open " + path);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { ::close(number); }

    [[nodiscard]] int Get() const noexcept { return number; }

private:
    int number;
};

/// Returns the number of bytes that wait in a pipe.
inline int CountWaiting(const Descriptor& pipe)
{
    int count = 0;
    if (::ioctl(pipe.Get(), FIONREAD, &count) != 0)
        throw std::system_error(errno, std::generic_category(), "ioctl FIONREAD");
    return count;
}

inline void WriteTo(const Descriptor& pipe, const std::string& text)
{
    if (::write(pipe.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::system_error(errno, std::generic_category(), "write to a pipe");
}

/// Keeps the worker from all requests that are queued behind it, from its construction until
/// `Release`: it opens a pipe for reading that has no writer.
class HeldWorker
{
public:
    HeldWorker(Core::Embedding::Runtime& runtime, const Core::NodeId& object,
               const std::string& pipePath)
        : pipe(pipePath)
        , client(runtime, object, "holder")
    {
        client.Open(pipe.GetPath(), 1);
    }
    HeldWorker(const HeldWorker&) = delete;
    HeldWorker& operator=(const HeldWorker&) = delete;
    ~HeldWorker() // NOLINT(bugprone-exception-escape): without its pipe there is no going on
    {
        Release();
        client.EndSession();
    }

    /// Works even when the worker reaches the pipe later.
    void Release()
    {
        if (!other)
            other.emplace(pipe.GetPath(), O_RDWR);
    }

private:
    NamedPipe pipe;
    Client client;
    std::optional<Descriptor> other;
};

/// A running file system of the loaded module, a client and a recorder of its events.
class AFileSystem : public testing::Test
{
protected:
    Events WaitForBarrier() { return FileSystemTests::WaitForBarrier(client, recorder); }

    /// Returns the acknowledgements of all requests so far and expects no other events.
    std::vector<Ack> TakeAcks() { return ToAcks(WaitForBarrier()); }

    void ExpectSilence() { EXPECT_EQ(WaitForBarrier().size(), 0U); }

    /// Returns the one answer to all requests so far; null, and a failure, when it is not one.
    EventRecorder::EventPointer TakeOnly(unsigned int type)
    {
        const Events events = WaitForBarrier();
        EXPECT_EQ(events.size(), 1U);
        if (events.size() != 1)
            return nullptr;
        EXPECT_EQ(TypeNumber(*events.front()), type);
        return TypeNumber(*events.front()) == type ? events.front() : nullptr;
    }

    std::vector<Entry> TakeListing(const std::string& path, bool recursive = false)
    {
        client.List(path, recursive);
        const auto event = TakeOnly(listResultEvent);
        if (event == nullptr)
            return {};
        EXPECT_FALSE(OwnField(*event, "LimitExceeded").Get<bool>());
        return ToEntries(*event);
    }

    /// Returns an open file, without an event about it.
    unsigned int Open(const std::string& path, unsigned int mode)
    {
        const unsigned int handle = client.Open(path, mode);
        ExpectSilence();
        return handle;
    }

    /// Returns true once the files of all sessions are closed.
    bool IsNothingOpen()
    {
        ExpectSilence();
        return FindDescriptorsBelow(folder.GetPath()).empty();
    }

    TemporaryFolder folder;
    LoadedModule module;
    Core::Embedding::Runtime& runtime = module.GetRuntime();
    Core::NodeId object = module.MakeFileSystem();
    Client client{runtime, object};
    EventRecorder recorder{runtime, object};
};

} // namespace FileSystemTests
