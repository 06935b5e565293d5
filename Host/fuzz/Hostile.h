#pragma once

#include "Connection.h"
#include "Field.h"
#include "Frames.h"
#include "LibraryClient.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Fuzz {

/// A client that does something unexpected now and then.
class Hostile
{
public:
    Hostile() = default;
    Hostile(const Hostile&) = delete;
    Hostile& operator=(const Hostile&) = delete;
    virtual ~Hostile() = default;

    /// Does one thing. Throws std::system_error if the host cannot be reached.
    virtual void Step() = 0;
};

/// A client that speaks the protocol itself, unencrypted, and so can break it at every layer.
class HostileFrames : public Hostile
{
public:
    HostileFrames(Field& field, std::size_t number)
        : field(field)
        , number(number)
    {}

    void Step() override;

private:
    void Connect();
    void Leave();
    /// `limit`: how long to wait for the answer, in milliseconds.
    void OpenChannel(bool isRenewal, int limit);
    void OpenStrangely();
    void StartSession();
    void DisturbSession();
    void SendRequest();

    /// Sends a request in the session; some ways of sending change its bytes.
    void Post(Value request, bool isMutated);
    void Send(const std::string& frame);
    /// Takes answers within the time until one has that type.
    std::optional<Value> Await(const UA_DataType& type, int limit);
    /// Returns the next answer, or nothing; it has a value if it is a whole response.
    bool TakeAnswer(int limit, std::optional<Value>& value);
    std::optional<Value> Understand(const std::string& frame);
    void Note(Value& response);

    Field& field;
    const std::size_t number;
    std::optional<Connection> connection;
    Channel channel;
    std::string unfinished; // chunks of a message that is not whole
    OpcUa::Ua<UA_NodeId> token;
    bool hasSession = false;
    std::uint32_t subscription = 0; // the last one made here
    std::size_t unanswered = 0;
    std::size_t refusals = 0; // of the session, one after another
};

/// A client that speaks through an encrypted connection of the library's client: its requests are
/// well-formed, and strange.
class HostileRequests : public Hostile
{
public:
    explicit HostileRequests(Field& field)
        : field(field)
    {}

    void Step() override;

private:
    Field& field;
    std::unique_ptr<LibraryClient> client;
};

} // namespace Fuzz
