#pragma once

#include "Core/CoreContext.h"
#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "Core/Objects.h"
#include "ModuleIdentifiers.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Stand-ins for the host that record the calls they get, which the real one hides.
namespace FileSystemTests::Doubles {

/// The record of a test: its steps, in order. Any thread.
class Journal
{
public:
    void Add(const std::string& line)
    {
        const std::lock_guard lock(mutex);
        lines.push_back(line);
    }
    [[nodiscard]] std::vector<std::string> GetLines() const
    {
        const std::lock_guard lock(mutex);
        return lines;
    }
    void Clear()
    {
        const std::lock_guard lock(mutex);
        lines.clear();
    }

private:
    mutable std::mutex mutex;
    std::vector<std::string> lines; // guarded by mutex
};

/// The fixed part of every node.
template <typename Interface>
class Node : public Interface, public std::enable_shared_from_this<Node<Interface>>
{
public:
    Node(Core::CoreContext& context, Core::NodeId id)
        : context(&context)
        , id(std::move(id))
    {}

    [[nodiscard]] const Core::NodeId& GetNodeId() const noexcept override { return id; }
    [[nodiscard]] const Core::QualifiedName& GetBrowseName() const noexcept override
    {
        return browseName;
    }
    [[nodiscard]] Core::CoreContext& GetCoreContext() const noexcept override { return *context; }
    [[nodiscard]] std::shared_ptr<Core::INode> GetSharedPointer() override
    {
        return this->shared_from_this();
    }
    [[nodiscard]] Core::EventRegistrationHandler
    RegisterEventObserver(std::shared_ptr<Core::IEventObserver> /*observer*/,
                          std::uint64_t /*filter*/, unsigned int /*affinityId*/,
                          std::shared_ptr<Core::SessionHandler> /*session*/,
                          int /*options*/) override
    {
        return {};
    }

private:
    Core::CoreContext* context;
    Core::NodeId id;
    Core::QualifiedName browseName;
};

/// The behaviour's own node. Keeps the raised events.
class ObjectNode final : public Node<Core::IObject>
{
public:
    struct Raised
    {
        std::shared_ptr<Core::IObjectType> type;
        std::vector<Core::Value> fields;
    };

    using Node::Node;

    void RaiseEvent(const std::shared_ptr<Core::IObjectType>& eventType,
                    const std::vector<Core::Value>& fields) override
    {
        if (beforeRaising)
            beforeRaising();
        const std::lock_guard lock(mutex);
        raised.push_back({eventType, fields});
    }

    [[nodiscard]] std::vector<Raised> GetRaised() const
    {
        const std::lock_guard lock(mutex);
        return raised;
    }

    std::function<void()> beforeRaising; ///< on the raising thread; set before the start

private:
    mutable std::mutex mutex;
    std::vector<Raised> raised; // guarded by mutex
};

class EventType final : public Node<Core::IObjectType>
{
public:
    EventType(Core::CoreContext& context, Core::NodeId id, std::vector<Core::QualifiedName> fields)
        : Node(context, std::move(id))
        , arguments(std::move(fields))
    {}
    [[nodiscard]] const Core::EventArguments& GetEventArguments() const noexcept override
    {
        return arguments;
    }

private:
    Core::EventArguments arguments;
};

/// The sessions folder. Keeps the arguments of the last registration of an observer.
class SessionsFolder final : public Node<Core::IObject>
{
public:
    struct Registration
    {
        std::weak_ptr<Core::IEventObserver> observer;
        std::uint64_t filter = 0;
        unsigned int affinityId = 0;
        std::shared_ptr<Core::SessionHandler> session;
        int options = -1;
    };

    SessionsFolder(Core::CoreContext& context, Journal& journal)
        : Node(context, Core::Objects::SessionsFolder())
        , journal(&journal)
    {}

    [[nodiscard]] Core::EventRegistrationHandler
    RegisterEventObserver(std::shared_ptr<Core::IEventObserver> observer, std::uint64_t filter,
                          unsigned int affinityId, std::shared_ptr<Core::SessionHandler> session,
                          int options) override
    {
        journal->Add("RegisterEventObserver");
        if (refuses)
            throw Core::InvalidArgumentException("The sessions folder takes no observer");
        registration = {observer, filter, affinityId, std::move(session), options};
        return Core::EventRegistrationHandler(
            [journal = journal] { journal->Add("End of registration"); });
    }
    void RaiseEvent(const std::shared_ptr<Core::IObjectType>& /*eventType*/,
                    const std::vector<Core::Value>& /*fields*/) override
    {}

    Registration registration;
    bool refuses = false;

private:
    Journal* journal;
};

class Session final : public Core::SessionHandler
{
public:
    explicit Session(std::shared_ptr<Core::IObject> object)
        : object(std::move(object))
    {}
    [[nodiscard]] std::shared_ptr<Core::IObject> GetSessionObject() override { return object; }

private:
    std::shared_ptr<Core::IObject> object;
};

class NodeFactory final : public Core::NodeFactory
{
public:
    void RegisterBehaviourFactory(const Core::Guid& identifier,
                                  std::shared_ptr<Core::IBehaviourFactory> factory) override
    {
        if (refuses)
            throw Core::AlreadyExistsException("The factory exists already");
        registered.emplace_back(identifier, std::move(factory));
    }

    std::vector<std::pair<Core::Guid, std::shared_ptr<Core::IBehaviourFactory>>> registered;
    bool refuses = false;
};

class Dispatcher final : public Core::Dispatcher
{
public:
    explicit Dispatcher(Journal& journal)
        : journal(&journal)
    {}
    [[nodiscard]] Core::DispatchGuard TerminateDispatchOnStop(unsigned int affinityId) override
    {
        journal->Add("TerminateDispatchOnStop " + std::to_string(affinityId));
        if (!armed)
            return {};
        return Core::DispatchGuard([this] {
            if (beforeLeaving)
                beforeLeaving();
            journal->Add("End of guard");
        });
    }

    bool armed = true;
    std::function<void()> beforeLeaving; ///< before the guard's end is recorded

private:
    Journal* journal;
};

class Sessions final : public Core::Sessions
{
public:
    explicit Sessions(Journal& journal)
        : journal(&journal)
    {}
    [[nodiscard]] std::shared_ptr<Core::SessionHandler> GetCurrentSession() const override
    {
        journal->Add("GetCurrentSession");
        if (beforeAnswering)
            beforeAnswering();
        return current;
    }

    std::shared_ptr<Core::SessionHandler> current;
    std::function<void()> beforeAnswering;

private:
    Journal* journal;
};

/// A context with the module's five event types, each field at a different place.
class Context final : public Core::CoreContext
{
public:
    Context()
    {
        Core::NamespaceMap::Register(FileSystem::Module::GetURI());
        using Types = std::vector<std::pair<const Core::NodeId*, std::vector<const char*>>>;
        const Types types{
            {&FileSystem::ObjectTypes::AckEvent(), {"Result", "FileHandle"}},
            {&FileSystem::ObjectTypes::ExistsResultEvent(), {"Exist"}},
            {&FileSystem::ObjectTypes::DeleteResultEvent(), {}},
            {&FileSystem::ObjectTypes::CreateDirectoryResultEvent(), {}},
            {&FileSystem::ObjectTypes::ListResultEvent(), {"LimitExceeded", "Content"}}};
        for (const auto& [id, ownFields] : types)
            SetEventType(*id, MakeFields(*id, ownFields));
    }

    void SetEventType(const Core::NodeId& id, std::vector<Core::QualifiedName> fields)
    {
        eventTypes[*id.GetNumeric()] = std::make_shared<EventType>(*this, id, std::move(fields));
    }

    [[nodiscard]] std::shared_ptr<Core::INode> GetNode(const Core::NodeId& nodeId) override
    {
        journal.Add("GetNode " + nodeId.ToString());
        return sessionsFolder;
    }
    [[nodiscard]] std::shared_ptr<Core::IObjectType>
    GetObjectType(const Core::NodeId& nodeId) override
    {
        journal.Add("GetObjectType " + std::to_string(*nodeId.GetNumeric()));
        const auto found = eventTypes.find(*nodeId.GetNumeric());
        if (found == eventTypes.end())
            throw Core::NotFoundException("There is no type " + nodeId.ToString());
        return found->second;
    }
    [[nodiscard]] unsigned int AssignAffinityId() override
    {
        journal.Add("AssignAffinityId");
        if (refusesAffinity)
            throw Core::InvalidStateException("There are no affinities left");
        return affinityId;
    }
    [[nodiscard]] Core::NodeFactory& GetNodeFactory() noexcept override { return nodeFactory; }
    [[nodiscard]] Core::Dispatcher& GetDispatcher() noexcept override { return dispatcher; }
    [[nodiscard]] Core::Sessions& GetSessions() noexcept override { return sessions; }
    [[nodiscard]] const std::vector<Core::Folder>& GetFolders() const noexcept override
    {
        return folders;
    }

    Journal journal;
    NodeFactory nodeFactory;
    Dispatcher dispatcher{journal};
    Sessions sessions{journal};
    std::vector<Core::Folder> folders;
    unsigned int affinityId = 4711;
    bool refusesAffinity = false;
    std::map<unsigned int, std::shared_ptr<EventType>> eventTypes; ///< by number
    std::shared_ptr<SessionsFolder> sessionsFolder =
        std::make_shared<SessionsFolder>(*this, journal);
    std::shared_ptr<ObjectNode> node = std::make_shared<ObjectNode>(*this, Core::NodeId(1, 100U));
    std::shared_ptr<ObjectNode> sessionObject =
        std::make_shared<ObjectNode>(*this, Core::NodeId(1, 200U));

private:
    /// Has the base field among others and each name in both namespaces: only the right pair finds
    /// the right place.
    static std::vector<Core::QualifiedName> MakeFields(const Core::NodeId& type,
                                                       const std::vector<const char*>& ownFields)
    {
        const int own = type.GetNamespaceIndex();
        std::vector<Core::QualifiedName> fields{
            {own, "EventType"}, {0, "EventId"}, {0, "EventType"}, {0, "Time"}};
        for (const char* name : ownFields) {
            fields.emplace_back(0, name);
            fields.emplace_back(own, name);
        }
        return fields;
    }
};

} // namespace FileSystemTests::Doubles
