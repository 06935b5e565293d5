#include "Transport/Opening/Resolver.h"

#include "Support/Mutex.h"

#include <cstring>
#include <exception>
#include <netdb.h>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace Transport {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;

namespace {

struct AddressesDeleter
{
    void operator()(addrinfo* addresses) const noexcept { freeaddrinfo(addresses); }
};

Tcp::endpoint ToEndpoint(const addrinfo& address)
{
    Tcp::endpoint endpoint;
    endpoint.resize(address.ai_addrlen);
    std::memcpy(endpoint.data(), address.ai_addr, address.ai_addrlen);
    return endpoint;
}

} // namespace

Lookup LookUp(const std::string& host, std::uint16_t port)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (error != 0)
        return {{}, gai_strerror(error)};
    const std::unique_ptr<addrinfo, AddressesDeleter> addresses(found);
    Lookup lookup;
    for (const auto* each = found; each != nullptr; each = each->ai_next)
        lookup.endpoints.push_back(ToEndpoint(*each));
    return lookup;
}

/// Shared by a resolver and the thread of its lookup, which may outlive it.
struct Resolver::Request
{
    Support::Mutex mutex;
    asio::io_context* context GUARDED_BY(mutex){}; // null once it was given up
    Found found GUARDED_BY(mutex);

    void Answer(const std::shared_ptr<Request>& self, Lookup lookup)
    {
        const Support::Lock lock(mutex);
        if (context != nullptr)
            asio::post(*context, [self, lookup = std::move(lookup)] { self->Tell(lookup); });
    }

    void Tell(const Lookup& lookup)
    {
        if (const auto tell = GiveUp())
            tell(lookup);
    }

    /// Returns the function that is not to be called any more; empty if it was given up before.
    Found GiveUp() noexcept
    {
        const Support::Lock lock(mutex);
        context = nullptr;
        return std::exchange(found, nullptr);
    }
};

Resolver::Resolver(asio::io_context& context, Function lookUp)
    : context(context)
    , lookUp(std::move(lookUp))
{}

Resolver::~Resolver()
{
    Cancel();
}

std::optional<Tcp::endpoint> Resolver::Parse(const std::string& host, std::uint16_t port)
{
    boost::system::error_code error;
    const auto address = asio::ip::make_address(host, error);
    return error ? std::nullopt : std::optional(Tcp::endpoint(address, port));
}

void Resolver::Resolve(const std::string& host, std::uint16_t port, Found found)
{
    Cancel();
    request = std::make_shared<Request>();
    {
        const Support::Lock lock(request->mutex);
        request->context = &context;
        request->found = std::move(found);
    }
    std::thread([request = request, lookUp = lookUp, host, port] {
        Lookup lookup;
        try {
            lookup = lookUp(host, port);
        } catch (const std::exception& failure) {
            lookup.error = failure.what();
        }
        request->Answer(request, std::move(lookup));
    }).detach();
}

void Resolver::Cancel() noexcept
{
    if (request)
        request->GiveUp();
}

} // namespace Transport
