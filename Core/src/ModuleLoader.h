#pragma once

#include "Core/CoreContext.h"
#include "FactoryRegistry.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace Core {

/// Owns a loaded shared library and unloads it.
class Library
{
public:
    /// Loads this file, without a search. Throws ModuleNotLoadableException with the dynamic
    /// linker's text.
    explicit Library(const std::filesystem::path& file);
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library();

    /// Returns null when the library has no such symbol.
    [[nodiscard]] void* FindSymbol(const char* name) const noexcept;

private:
    void* handle;
};

/// A loaded module, and the host as this module sees it, so that a factory is known to be the
/// module's on any thread. The module's factories and behaviours hold it, and with it their code.
class Module final : public CoreContext,
                     public NodeFactory,
                     public std::enable_shared_from_this<Module>
{
public:
    /// Loads a module and lets it register its factories. Throws as Runtime::LoadModule does; then
    /// it leaves nothing behind.
    [[nodiscard]] static std::shared_ptr<const Module> Load(const std::filesystem::path& file,
                                                            std::shared_ptr<CoreContext> host,
                                                            FactoryRegistry& registry);

    /// `registry` belongs to `host` and lives as long.
    Module(const std::filesystem::path& file, std::shared_ptr<CoreContext> host,
           FactoryRegistry& registry);

    [[nodiscard]] std::shared_ptr<INode> GetNode(const NodeId& nodeId) override;
    [[nodiscard]] std::shared_ptr<IObjectType> GetObjectType(const NodeId& nodeId) override;
    [[nodiscard]] unsigned int AssignAffinityId() override;
    [[nodiscard]] NodeFactory& GetNodeFactory() noexcept override { return *this; }
    [[nodiscard]] Dispatcher& GetDispatcher() noexcept override;
    [[nodiscard]] Sessions& GetSessions() noexcept override;
    [[nodiscard]] const std::vector<Folder>& GetFolders() const noexcept override;

    void RegisterBehaviourFactory(const Guid& identifier,
                                  std::shared_ptr<IBehaviourFactory> factory) override;

private:
    using Entry = int(CoreContext&);

    [[nodiscard]] Entry& GetEntry(const std::filesystem::path& file) const;

    const std::shared_ptr<CoreContext> host;
    FactoryRegistry& registry;
    const Library library;
};

} // namespace Core
