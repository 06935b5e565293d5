#pragma once

#include "Transport/Asio.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Transport {

/// The addresses of a name.
struct Lookup
{
    std::vector<boost::asio::ip::tcp::endpoint> endpoints;
    std::string error; ///< in the system's words where there are none
};

/// Returns the addresses of a name, by the system's means. Blocks, for many seconds where a name
/// server does not answer.
[[nodiscard]] Lookup LookUp(const std::string& host, std::uint16_t port);

/// Finds the addresses of one name without blocking, and can be given up at any time, which the
/// system's own lookup cannot: that runs on a thread of its own, and is left behind.
///
/// One thread uses it, which runs the context, other than where it is said.
class Resolver
{
public:
    using Found = std::function<void(const Lookup&)>;
    using Function = std::function<Lookup(const std::string&, std::uint16_t)>;

    /// The context must outlive it. `lookUp` is called on another thread.
    explicit Resolver(boost::asio::io_context& context, Function lookUp = &LookUp);
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;
    /// Gives up.
    ~Resolver();

    /// Returns the endpoint that the text names by itself, without a lookup.
    [[nodiscard]] static std::optional<boost::asio::ip::tcp::endpoint>
    Parse(const std::string& host, std::uint16_t port);

    /// Calls `found` from the context, unless it is given up before. Throws std::system_error when
    /// there can be no further thread.
    void Resolve(const std::string& host, std::uint16_t port, Found found);

    /// `found` is not called any more.
    void Cancel() noexcept;

private:
    struct Request;

    boost::asio::io_context& context;
    const Function lookUp;
    std::shared_ptr<Request> request; // the last one
};

} // namespace Transport
