#pragma once

#include "Caller.h"
#include "Core/Behaviour.h"
#include "Core/CoreContext.h"
#include "Core/Events.h"
#include "Core/NodeProvider.h"
#include "Directories.h"
#include "DirectoryReader.h"
#include "Files.h"
#include "Folders.h"
#include "Keys.h"
#include "MimeTypes.h"
#include "NodeIds.h"
#include "OpenFiles.h"
#include "Paths.h"
#include "Properties.h"
#include "Transfers.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace FileObjects {

/// Serves the host's folders as objects of FileDirectoryType and FileType (OPC 10000-20). It keeps
/// no node: each is made from its key while somebody looks at it. Methods do their work on the
/// thread of the session that calls, while it waits.
class FileObjectsBehaviour final : public Core::IExecutableBehaviour,
                                   public Core::INodeProvider,
                                   public Core::IReferenceObserver,
                                   public std::enable_shared_from_this<FileObjectsBehaviour>
{
public:
    /// `node` outlives the behaviour. Touches no file.
    FileObjectsBehaviour(Core::INode& node, std::shared_ptr<const MimeTypes> mimeTypes);
    FileObjectsBehaviour(const FileObjectsBehaviour&) = delete;
    FileObjectsBehaviour& operator=(const FileObjectsBehaviour&) = delete;
    ~FileObjectsBehaviour() override = default;

    /// Begins to hear of sessions that end, and to raise events.
    void OnStart() override;
    /// Closes all files, and ends work that takes long.
    void OnStop() override;

    /// Returns false for a method that the object does not have. Throws Core::StatusException.
    bool OnExecuteMethod(const std::shared_ptr<Core::INode>& node, const std::string& methodName,
                         const std::vector<Core::Value>& inputs,
                         std::vector<Core::Value>& outputs) override;

    [[nodiscard]] std::optional<Core::ProvidedNode> Describe(const std::string& key) const override;
    [[nodiscard]] std::vector<std::string> GetMembers(const std::string& key) const override;
    [[nodiscard]] bool Exists(const std::string& key) override;
    void List(const std::string& key, Core::IEntryList& entries) override;
    [[nodiscard]] Core::Value Read(const std::string& key) override;

    void OnReferenceAdded(const Core::ReferenceData& reference) override;
    /// Closes the files of the session that has ended.
    void OnReferenceRemoved(const Core::ReferenceData& reference) override;

private:
    using Values = std::vector<Core::Value>;

    struct Call
    {
        const Key& node;
        const Caller& caller;
        const Values& inputs;
        Values& outputs;
    };
    struct Method
    {
        const char* name;
        std::size_t inputCount;
        void (*run)(FileObjectsBehaviour& self, const Call& call);
    };
    using Methods = std::vector<Method>;
    static const Methods& GetFileMethods();
    static const Methods& GetDirectoryMethods();
    static const Methods& GetCommonMethods();
    static const Methods& GetTransferMethods();
    static const Methods& GetPathMethods();
    [[nodiscard]] static std::vector<const Methods*> GetMethods(NodeKind kind);
    [[nodiscard]] static const Method* FindMethod(NodeKind kind, const std::string& name);

    void RaiseDropped(unsigned int handle) const;
    void ComputeChecksumOf(const Call& call);
    void SetPermissionsOf(const Call& call) const;
    void SetTimeOf(const Call& call) const;

    void ListDirectory(const Place& place, Core::IEntryList& entries) const;
    [[nodiscard]] bool IsListed(const Descriptor& directory, const Place& place,
                                const DirectoryEntry& entry, NodeKind& kind) const;
    [[nodiscard]] Core::NodeId GetType(NodeKind kind) const;

    Core::INode& node;
    const std::shared_ptr<const MimeTypes> mimeTypes;
    const int namespaceIndex;
    const unsigned int affinityId;
    Folders folders;
    Keys keys;
    NodeIds nodeIds;
    OpenFiles openFiles;
    Files files;
    Directories directories;
    Paths paths;
    Transfers transfers;
    Properties properties;
    std::atomic<bool> isStopping{false};
    Core::EventRegistrationHandler sessionsRegistration; // start and stop only
};

} // namespace FileObjects
