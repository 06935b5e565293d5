#include "StressSupport.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Stress {

namespace {

constexpr std::chrono::seconds hangLimit{120};

std::uint64_t ReadNumber(const char* variable, std::uint64_t otherwise)
{
    const char* const text = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): at the start
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

} // namespace

Settings Settings::FromEnvironment()
{
    return {.calls = ReadNumber("TALVENSOR_STRESS_CALLS", 500'000),
            .seed = ReadNumber("TALVENSOR_STRESS_SEED", 20'261'121)};
}

void Violations::Add(const std::string& text)
{
    constexpr std::size_t kept = 20;
    const std::lock_guard lock(mutex);
    ++count;
    if (texts.size() < kept)
        texts.push_back(text);
}

std::uint64_t Violations::GetCount() const
{
    const std::lock_guard lock(mutex);
    return count;
}

std::string Violations::GetTexts() const
{
    const std::lock_guard lock(mutex);
    std::string all;
    for (const auto& text : texts)
        all += text + '\n';
    return all;
}

const char* ToString(Method method)
{
    constexpr std::array<const char*, static_cast<std::size_t>(Method::Count)> names{
        "Open",       "Close",           "UploadFile",  "OpenWrite",   "Write",
        "WriteClose", "CreateDirectory", "Delete",      "List",        "Exists",
        "Read",       "GetDateTime",     "SetDateTime", "GetPosition", "SetPosition"};
    return names.at(static_cast<std::size_t>(method));
}

void Mark::Expect(unsigned int number)
{
    const std::lock_guard lock(mutex);
    expected = number;
    reached = false;
}

bool Mark::Wait()
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, hangLimit, [this] { return reached; });
}

void Mark::Reach(unsigned int number)
{
    {
        const std::lock_guard lock(mutex);
        reached = reached || number == expected;
    }
    changed.notify_all();
}

SessionPool::SessionPool(Core::Embedding::Runtime& runtime)
    : runtime(&runtime)
{
    constexpr std::size_t size = 12;
    for (std::size_t i = 0; i < size; ++i)
        sessions.push_back(Open());
}

std::shared_ptr<Core::Embedding::Session> SessionPool::Open()
{
    return runtime->OpenSession("stress " + std::to_string(++opened));
}

std::shared_ptr<Core::Embedding::Session> SessionPool::Get(std::uint64_t random) const
{
    const std::lock_guard lock(mutex);
    return sessions.at(random % sessions.size());
}

void SessionPool::EndOne(std::uint64_t random)
{
    auto session = Open();
    {
        const std::lock_guard lock(mutex);
        std::swap(sessions.at(random % sessions.size()), session);
    }
    session->Close();
    ++ended;
}

void SessionPool::EndAll()
{
    const std::lock_guard lock(mutex);
    for (const auto& session : sessions)
        session->Close();
}

void WatchingSink::Write(const Core::LogEntry& entry)
{
    ++entries;
    const std::string line = Core::Embedding::FormatLogLine(entry);
    if (entry.level != Core::LogLevel::Error)
        return;
    if (entry.category != "FileSystem")
        violations->Add("an error outside the module: " + line);
    if (entry.function != "operator()")
        return;
    if (entry.message.starts_with("Exception caught: boost::filesystem::"))
        ++brokenListings;
    else
        violations->Add("an exception left a task: " + line);
}

Watchdog::Watchdog(std::function<std::uint64_t()> getProgress)
    : getProgress(std::move(getProgress))
    , thread([this] { Watch(); })
{}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard lock(mutex);
        ended = true;
    }
    ending.notify_all();
    thread.join();
}

void Watchdog::Watch()
{
    std::unique_lock lock(mutex);
    std::uint64_t last = getProgress();
    while (!ending.wait_for(lock, hangLimit + std::chrono::seconds(30), [this] { return ended; })) {
        const std::uint64_t now = getProgress();
        if (now == last) {
            static_cast<void>(std::fputs("nothing moves any more\n", stderr));
            std::abort();
        }
        last = now;
    }
}

} // namespace Stress
