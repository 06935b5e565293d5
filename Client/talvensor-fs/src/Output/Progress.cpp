#include "Output/Progress.h"

#include "Output/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Cli {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr auto meteredTime = std::chrono::seconds(5);
constexpr auto frameTime = std::chrono::milliseconds(100);
constexpr int framesInLine = 50; // where each is a line of its own: one in five seconds

std::string DescribePart(std::uint64_t bytes, std::optional<std::uint64_t> all)
{
    if (!all)
        return FormatBytes(bytes);
    const auto share = *all == 0 ? 1.0 : static_cast<double>(bytes) / static_cast<double>(*all);
    const auto percent = static_cast<int>(std::clamp(share, 0.0, 1.0) * 100);
    return fmt::format("{:3}%  {} of {}", percent, FormatBytes(bytes), FormatBytes(*all));
}

/// Returns the size of all files: that of the file where there is one only.
std::optional<std::uint64_t> GetAllBytes(const Client::Progress& progress)
{
    if (!progress.allBytes && progress.allFiles == 1)
        return progress.fileSize;
    return progress.allBytes;
}

std::string DescribeTimeLeft(const Client::Progress& progress, std::optional<double> rate)
{
    const auto all = GetAllBytes(progress);
    if (!all || !rate || *rate < 1 || *all < progress.bytes)
        return {};
    constexpr double longest = 360'000; // beyond 100 hours nobody believes it
    const auto seconds = static_cast<double>(*all - progress.bytes) / *rate;
    if (seconds > longest)
        return {};
    return "  " + FormatClock(std::chrono::seconds(std::llround(seconds))) + " left";
}

std::string RenderFile(const Client::Progress& progress, std::size_t columns)
{
    const auto part = std::string(progress.isVerifying ? "  verifying" : "") + "  " +
                      DescribePart(progress.fileBytes, progress.fileSize);
    const auto width = CountColumns(part);
    if (width >= columns)
        return FitColumns(part, columns);
    const auto name = FitColumnsFromEnd(EscapeName(progress.path), columns - width);
    return name + std::string(columns - width - CountColumns(name), ' ') + part;
}

} // namespace

void RateMeter::Add(Time time, std::uint64_t number)
{
    samples.push_back({time, number});
    // The last one before the metered time stays, so that it is covered.
    while (samples.size() > 2 && samples[1].time + meteredTime <= time)
        samples.pop_front();
}

std::optional<double> RateMeter::GetRate() const
{
    if (samples.empty())
        return std::nullopt;
    const Seconds time = samples.back().time - samples.front().time;
    if (time < Seconds(1))
        return std::nullopt;
    const auto grown =
        samples.back().number - std::min(samples.front().number, samples.back().number);
    return static_cast<double>(grown) / time.count();
}

std::vector<std::string> RenderProgress(const Client::Progress& progress,
                                        std::optional<double> rate, std::size_t columns)
{
    return {RenderFile(progress, columns), FitColumns(DescribeProgress(progress, rate), columns)};
}

std::string DescribeProgress(const Client::Progress& progress, std::optional<double> rate)
{
    auto text =
        fmt::format("{} of {}  {}", progress.files, Count(progress.allFiles, "file", "files"),
                    DescribePart(progress.bytes, GetAllBytes(progress)));
    if (progress.isVerifying) // the rate and the time left are those of sending
        return text;
    if (rate)
        text += fmt::format("  {}/s", FormatBytes(static_cast<std::uint64_t>(*rate)));
    return text + DescribeTimeLeft(progress, rate);
}

ProgressDisplay::ProgressDisplay(Console& console)
    : console(console)
    , thread([this] { Run(); })
{}

ProgressDisplay::~ProgressDisplay()
{
    {
        const Support::Lock lock(mutex);
        isEnding = true;
    }
    changed.NotifyOne();
    thread.join();
    if (console.CanDraw())
        console.Draw({});
}

void ProgressDisplay::Update(const Client::Progress& progress)
{
    const Support::Lock lock(mutex);
    latest = progress;
}

void ProgressDisplay::Run()
{
    const int framesInShown = console.CanDraw() ? 1 : framesInLine;
    Support::Lock lock(mutex);
    for (int frame = 1; !isEnding; ++frame) {
        const auto next = std::chrono::steady_clock::now() + frameTime;
        while (!isEnding && changed.WaitUntil(lock, next)) {
        }
        if (isEnding || !latest)
            continue;
        const auto progress = *latest;
        lock.Unlock();
        meter.Add(std::chrono::steady_clock::now(), progress.bytes);
        if (frame % framesInShown == 0)
            Show(progress);
        lock.Relock();
    }
}

void ProgressDisplay::Show(const Client::Progress& progress)
{
    if (!console.CanDraw()) {
        console.Say(DescribeProgress(progress, meter.GetRate()));
        return;
    }
    // The last column stays free: a terminal would begin a new line there.
    const auto columns = std::max<std::size_t>(Console::GetColumns(), 2) - 1;
    console.Draw(RenderProgress(progress, meter.GetRate(), columns));
}

} // namespace Cli
