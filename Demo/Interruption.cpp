#include "Interruption.h"

#include <csignal>

namespace Demo {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void HandleSignal(int /*number*/)
{
    interrupted = 1;
}

void Handle(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(number, &action, nullptr);
}

} // namespace

void CatchSignals()
{
    Handle(SIGPIPE, SIG_IGN);
    Handle(SIGINT, HandleSignal);
    Handle(SIGTERM, HandleSignal);
    Handle(SIGHUP, HandleSignal);
}

void ThrowIfInterrupted()
{
    if (interrupted != 0)
        throw InterruptedException();
}

} // namespace Demo
