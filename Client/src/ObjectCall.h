#pragma once

#include "Client/Exceptions.h"
#include "Client/FileSystem.h"
#include "PostedCall.h"
#include "Waiter.h"

#include <OpcUa/Ua.h>

#include <open62541/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// The methods of the file objects that work by path; their published numbers.
enum class ObjectMethod : std::uint16_t
{
    GetStates = 1090,
    ListPath = 1100,
    MovePaths = 1110,
    CopyPath = 1120,
    GetPathSpace = 1130,
    GetPathChecksum = 1140,
    SetPathPermissions = 1150,
};

/// One call of a method of the file objects. The inputs belong to the thread that makes it until it
/// is posted, then to the engine; the outcome to the engine until `IsAnswered`.
class ObjectCall final : public PostedCall
{
public:
    /// `path`: for messages.
    ObjectCall(ObjectMethod method, std::string path, std::shared_ptr<Waiter> waiter);

    // Each adds the next input. They throw std::bad_alloc.

    void AddPath(const std::string& path);
    void AddPaths(std::span<const std::string> paths);
    void Add(bool value);
    void Add(std::uint32_t value);
    void Add(std::uint64_t value);
    void Add(std::span<const std::uint32_t> values);

    [[nodiscard]] bool Send(const Namespaces& namespaces, const Encode& encode) override;
    void TakeAnswer(UA_StatusCode given, UA_CallMethodResult* result) override;
    void Lose(bool isOverdue) noexcept override;
    [[nodiscard]] std::string Describe() const override;
    [[nodiscard]] bool MayTakeLong() const noexcept override;

    [[nodiscard]] bool IsAnswered() const noexcept { return isAnswered; }

    // For an answered call.

    [[nodiscard]] bool IsLost() const noexcept { return isLost; }
    /// Lost since no answer came in time.
    [[nodiscard]] bool IsOverdue() const noexcept { return isOverdue; }
    [[nodiscard]] UA_StatusCode GetStatus() const noexcept { return status; }
    /// Returns the server's own words for a bad status; empty when there are none.
    [[nodiscard]] const std::string& GetReason() const noexcept { return reason; }

    // The outputs by their index. Each throws CallRefusedException when there is no such output.

    template <typename T>
    [[nodiscard]] std::span<const T> GetArray(std::size_t index, std::size_t type) const
    {
        const UA_Variant& output = Get(index, type, true);
        return {static_cast<const T*>(output.data), output.arrayLength};
    }
    template <typename T>
    [[nodiscard]] const T& GetScalar(std::size_t index, std::size_t type) const
    {
        return *static_cast<const T*>(Get(index, type, false).data);
    }

private:
    [[nodiscard]] UA_Variant& AddInput();
    void AddScalar(const void* value, std::size_t type);
    [[nodiscard]] const UA_Variant& Get(std::size_t index, std::size_t type, bool isArray) const;

    const ObjectMethod method;
    const std::string path;
    const std::shared_ptr<Waiter> waiter;
    std::vector<OpcUa::Ua<UA_Variant>> inputs;

    std::atomic<bool> isLost{false};
    std::atomic<bool> isOverdue{false};
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    std::string reason;
    std::vector<OpcUa::Ua<UA_Variant>> outputs;
    std::atomic<bool> isAnswered{false}; // set last
};

using ObjectCallPointer = std::shared_ptr<ObjectCall>;

/// Returns a text of the server as the bytes that it stands for.
[[nodiscard]] std::string ToBytes(const UA_String& text);

} // namespace Client
