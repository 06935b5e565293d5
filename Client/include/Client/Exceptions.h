#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Client {

/// Base of all that this library throws. The text names what failed, on what, and why.
class ClientException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// An argument cannot be used: a URL, a path, an option.
class InvalidArgumentException : public ClientException
{
public:
    using ClientException::ClientException;
};

/// Nothing answers at the URL, or not in time, or not in OPC UA.
class NoConnectionException : public ClientException
{
public:
    using ClientException::ClientException;
};

enum class Refusal
{
    Login,             ///< the user or the password, or that there is none
    ServerCertificate, ///< the caller's own decision, see ConnectionOptions::trustServer
    ClientCertificate, ///< the server does not trust ours
    Security,          ///< the server offers no security that fits what is asked for
    Limit,             ///< the server has as many sessions or file systems as it allows
    Other,
};

/// The server refuses the login, or we do not trust the server. Trying again does not help.
class RefusedException : public ClientException
{
public:
    RefusedException(Refusal refusal, const std::string& what)
        : ClientException(what)
        , refusal(refusal)
    {}

    [[nodiscard]] Refusal GetRefusal() const noexcept { return refusal; }

private:
    Refusal refusal;
};

/// The server refused one call; the connection goes on.
class CallRefusedException : public ClientException
{
public:
    CallRefusedException(const std::string& what, std::uint32_t status)
        : ClientException(what)
        , status(status)
    {}

    /// The OPC UA status code.
    [[nodiscard]] std::uint32_t GetStatus() const noexcept { return status; }

private:
    std::uint32_t status;
};

/// The connection broke and could not be made again in time (ConnectionOptions::reconnectTime), or
/// broke during a request that cannot be repeated. The connection object is of no more use after
/// the former.
class ConnectionLostException : public ClientException
{
public:
    using ClientException::ClientException;
};

/// The request's Cancellation was set.
class CancelledException : public ClientException
{
public:
    CancelledException()
        : ClientException("cancelled")
    {}
};

/// The server's file system could not do what was asked, as far as it tells.
class OperationFailedException : public ClientException
{
public:
    using ClientException::ClientException;
};

} // namespace Client
