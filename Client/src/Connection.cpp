#include "Client/Connection.h"

#include "Engine.h"

#include <utility>

namespace Client {

Connection::Connection(ConnectionOptions options, const Cancellation* cancellation)
    : engine(std::make_unique<Engine>(std::move(options), cancellation))
{}

Connection::~Connection() = default;

void Connection::Close() noexcept
{
    engine->Close();
}

void Connection::EndBy(std::chrono::steady_clock::time_point deadline) noexcept
{
    engine->EndBy(deadline);
}

ServerInfo Connection::GetInfo() const
{
    ServerInfo info;
    engine->Run([&] { info = engine->AskInfo(); });
    return info;
}

} // namespace Client
