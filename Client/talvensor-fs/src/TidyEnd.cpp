#include "TidyEnd.h"

#include <poll.h>

#include <array>
#include <string>
#include <utility>

namespace Cli {

namespace {

constexpr int unnoticed = 200; // ms that nobody minds

/// Returns when the descriptor is readable or the time is over.
void Await(int descriptor, int milliseconds)
{
    pollfd query{descriptor, POLLIN, 0};
    poll(&query, 1, milliseconds);
}

} // namespace

TidyEnd::TidyEnd(const Client::Cancellation& cancellation, Console& console,
                 std::function<void()> onInterruption)
    : cancellation(cancellation)
    , console(console)
    , onInterruption(std::move(onInterruption))
    , thread([this] { Watch(); })
{}

TidyEnd::~TidyEnd()
{
    over.Cancel();
    thread.join();
}

void TidyEnd::Watch()
{
    std::array<pollfd, 2> queries{pollfd{cancellation.GetDescriptor(), POLLIN, 0},
                                  pollfd{over.GetDescriptor(), POLLIN, 0}};
    while (!cancellation.IsCancelled() && !over.IsCancelled())
        poll(queries.data(), queries.size(), -1);
    if (!cancellation.IsCancelled())
        return;
    if (onInterruption)
        onInterruption();
    Await(over.GetDescriptor(), unnoticed);
    if (!over.IsCancelled())
        console.Report("interrupted: closing files on the server, for " +
                       std::to_string(Client::Cancellation::tidyTime.count()) +
                       " s at most; a second Ctrl-C ends at once");
}

} // namespace Cli
