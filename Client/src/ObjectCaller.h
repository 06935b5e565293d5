#pragma once

#include "CallsLost.h"
#include "Client/FileObjects.h"
#include "Engine.h"
#include "ObjectCall.h"
#include "Waiter.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// The calls that one thread makes on the file objects: what FileObjects promises, and a loss that
/// its user can deal with. All operations throw ConnectionLostException, CancelledException,
/// CallRefusedException.
class ObjectCaller
{
public:
    ObjectCaller(Engine& engine, const Cancellation* cancellation) noexcept
        : engine(engine)
        , cancellation(cancellation)
    {}

    [[nodiscard]] std::vector<EntryState> GetStates(std::span<const std::string> paths);
    [[nodiscard]] DirectoryListing List(const std::string& directory);
    [[nodiscard]] std::vector<DirectoryListing> ListAll(std::span<const std::string> directories);
    /// Throws CallsLost: nobody knows then which of them were done.
    [[nodiscard]] std::vector<Result> Move(std::span<const Renaming> renamings, bool replaces);
    /// Throws CallsLost.
    void Copy(const std::string& source, const std::string& target, bool replaces);
    [[nodiscard]] Space GetSpace(const std::string& path);
    [[nodiscard]] Sha256 GetChecksum(const std::string& path, std::uint64_t start,
                                     std::uint64_t length);
    [[nodiscard]] std::vector<Result> SetPermissions(std::span<const std::string> paths,
                                                     std::span<const std::uint32_t> permissions);

private:
    enum class After
    {
        Repeat, ///< a call that is lost is made again
        Throw,  ///< CallsLost
    };
    /// Makes the call of a number; takes its answer.
    using Make = std::function<ObjectCallPointer(std::size_t)>;
    using Take = std::function<void(std::size_t, const ObjectCallPointer&)>;

    [[nodiscard]] ObjectCallPointer MakeCall(ObjectMethod method, const std::string& path) const;
    [[nodiscard]] ObjectCallPointer MakeList(const std::string& directory,
                                             std::uint64_t start) const;
    void RequireOffer() const;
    void Post(const ObjectCallPointer& call) const { engine.Post(call); }
    void Await(const ObjectCall& call) const;
    [[nodiscard]] ObjectCallPointer AwaitOrRepeat(ObjectCallPointer call, After after,
                                                  const std::function<ObjectCallPointer()>& make);
    [[nodiscard]] ObjectCallPointer RunOne(After after,
                                           const std::function<ObjectCallPointer()>& make);
    void RunAll(std::size_t count, After after, const Make& make, const Take& take);
    [[nodiscard]] DirectoryListing TakeListing(ObjectCallPointer call,
                                               const std::string& directory);

    Engine& engine;
    const Cancellation* cancellation;
    const std::shared_ptr<Waiter> waiter = std::make_shared<Waiter>();
};

} // namespace Client
