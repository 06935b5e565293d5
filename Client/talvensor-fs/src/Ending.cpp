#include "Ending.h"

#include "Output/Output.h"

#include "Client/Exceptions.h"

namespace Cli {

Ending RunToEnd(const std::function<ExitStatus()>& command, const Trust& trust,
                const std::function<bool()>& hasInterrupted)
{
    constexpr bool isInterrupted = true;
    try {
        return {command(), !isInterrupted, {}};
    } catch (const Client::CancelledException&) {
        return {ExitStatus::Failed, isInterrupted, "interrupted"};
    } catch (const BrokenPipeException&) {
        return {ExitStatus::BrokenPipe, !isInterrupted, {}};
    } catch (const Client::RefusedException& error) {
        // The library knows that the server was not trusted; why, is known here.
        return {ExitStatus::Refused, !isInterrupted,
                trust.GetReason().empty() ? error.what() : trust.GetReason()};
    } catch (const Client::NoConnectionException& error) {
        return {ExitStatus::NoConnection, !isInterrupted, error.what()};
    } catch (const Client::ConnectionLostException& error) {
        if (hasInterrupted())
            return {ExitStatus::Failed, isInterrupted, "interrupted"};
        return {ExitStatus::NoConnection, !isInterrupted, error.what()};
    } catch (const Client::InvalidArgumentException& error) {
        return {ExitStatus::Usage, !isInterrupted, error.what()};
    } catch (const std::exception& error) {
        return {ExitStatus::Failed, !isInterrupted, error.what()};
    }
}

} // namespace Cli
