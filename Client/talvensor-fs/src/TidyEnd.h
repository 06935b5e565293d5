#pragma once

#include "Client/Cancellation.h"
#include "Output/Console.h"

#include <functional>
#include <thread>

namespace Cli {

/// Watches over the end of a command that is interrupted: tells that it is under way, unless it is
/// over at once. Has a thread of its own.
class TidyEnd
{
public:
    /// `onInterruption` runs on the thread, as soon as the cancellation is set; it may be empty.
    /// All must outlive this. Throws ClientException when there is no descriptor left.
    TidyEnd(const Client::Cancellation& cancellation, Console& console,
            std::function<void()> onInterruption);
    TidyEnd(const TidyEnd&) = delete;
    TidyEnd& operator=(const TidyEnd&) = delete;
    ~TidyEnd();

private:
    void Watch();

    const Client::Cancellation& cancellation;
    Console& console;
    const std::function<void()> onInterruption;
    Client::Cancellation over; ///< set by the destructor
    std::thread thread;        // last
};

} // namespace Cli
