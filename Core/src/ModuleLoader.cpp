#include "ModuleLoader.h"

#include "Core/Exception.h"
#include "CoreLog.h"

#include <dlfcn.h>
#include <optional>
#include <string>
#include <utility>

namespace Core {

namespace {

constexpr const char* entryName = "RegisterFactories";

[[noreturn]] void FailToLoad(const std::filesystem::path& file, const std::string& reason)
{
    throw ModuleNotLoadableException("Module '" + file.string() + "' cannot be loaded: " + reason);
}

/// Returns the absolute path, for which the dynamic linker does not search.
std::filesystem::path Locate(const std::filesystem::path& file)
{
    if (file.empty())
        FailToLoad(file, "the path is empty");
    if (file.native().find('\0') != std::string::npos)
        FailToLoad(file, "the path holds a zero byte");
    std::error_code error;
    auto located = std::filesystem::absolute(file, error);
    if (error)
        FailToLoad(file, error.message());
    return located;
}

/// Discards the factories of a module that is registering, unless it is committed.
class Registration
{
public:
    Registration(FactoryRegistry& registry, const Module& module)
        : registry(registry)
        , module(module)
    {
        registry.BeginLoading(module);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration()
    {
        if (!isCommitted)
            static_cast<void>(registry.Discard(module));
    }

    void Commit() noexcept
    {
        registry.Commit(module);
        isCommitted = true;
    }

private:
    FactoryRegistry& registry;
    const Module& module;
    bool isCommitted = false;
};

/// The result of a module's entry. The module's exception itself goes no further: its code may be
/// in the module, which is unloaded.
struct Outcome
{
    int result = 0;
    std::optional<ExceptionDescription> exception;
};

Outcome Run(int (&entry)(CoreContext&), CoreContext& context)
{
    try {
        return {entry(context), std::nullopt};
    } catch (...) {
        return {0, DescribeCurrentException()};
    }
}

void Check(const Outcome& outcome, const std::filesystem::path& file)
{
    const auto subject = "Module '" + file.string() + "' ";
    if (outcome.exception)
        throw ModuleFailedException(subject + "failed in " + entryName + ": " +
                                        outcome.exception->message,
                                    outcome.exception->details);
    if (outcome.result != 1)
        throw ModuleRefusedException(subject + "refused: " + entryName + " returned " +
                                     std::to_string(outcome.result) + ", not 1");
}

} // namespace

Library::Library(const std::filesystem::path& file)
    : handle(dlopen(Locate(file).c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (handle == nullptr)
        FailToLoad(file, dlerror()); // NOLINT(concurrency-mt-unsafe): glibc keeps it per thread
}

Library::~Library()
{
    dlclose(handle);
}

void* Library::FindSymbol(const char* name) const noexcept
{
    return dlsym(handle, name);
}

std::shared_ptr<const Module> Module::Load(const std::filesystem::path& file,
                                           std::shared_ptr<CoreContext> host,
                                           FactoryRegistry& registry)
{
    auto module = std::make_shared<Module>(file, std::move(host), registry);
    auto& entry = module->GetEntry(file);
    Registration registration(registry, *module);
    Check(Run(entry, *module), file);
    registration.Commit();
    return module;
}

Module::Module(const std::filesystem::path& file, std::shared_ptr<CoreContext> host,
               FactoryRegistry& registry)
    : host(std::move(host))
    , registry(registry)
    , library(file)
{}

Module::Entry& Module::GetEntry(const std::filesystem::path& file) const
{
    auto* const entry = reinterpret_cast<Entry*>(library.FindSymbol(entryName));
    if (entry == nullptr)
        throw ModuleEntryMissingException("Module '" + file.string() + "' does not export " +
                                          entryName);
    return *entry;
}

std::shared_ptr<INode> Module::GetNode(const NodeId& nodeId)
{
    return host->GetNode(nodeId);
}

std::shared_ptr<IObjectType> Module::GetObjectType(const NodeId& nodeId)
{
    return host->GetObjectType(nodeId);
}

unsigned int Module::AssignAffinityId()
{
    return host->AssignAffinityId();
}

Dispatcher& Module::GetDispatcher() noexcept
{
    return host->GetDispatcher();
}

Sessions& Module::GetSessions() noexcept
{
    return host->GetSessions();
}

const std::vector<Folder>& Module::GetFolders() const noexcept
{
    return host->GetFolders();
}

void Module::RegisterBehaviourFactory(const Guid& identifier,
                                      std::shared_ptr<IBehaviourFactory> factory)
{
    registry.Register(identifier, {shared_from_this(), std::move(factory)});
}

} // namespace Core
