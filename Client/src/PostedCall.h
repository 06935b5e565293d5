#pragma once

#include <open62541/types_generated.h>

#include <functional>
#include <memory>
#include <string>

namespace Client {

struct Namespaces;

/// A call of a method on its way to the server and back. It is made and posted by a thread that
/// waits for it; these operations are for the engine, which calls them on its own thread, except
/// that any thread that it belongs to may lose it.
class PostedCall
{
public:
    using Encode = std::function<void(const UA_CallMethodRequest&)>;

    PostedCall() = default;
    PostedCall(const PostedCall&) = delete;
    PostedCall& operator=(const PostedCall&) = delete;
    virtual ~PostedCall() = default;

    /// Gives the request to `encode`, which does not keep it. Returns false, having given nothing,
    /// when the call is not to be sent any more.
    [[nodiscard]] virtual bool Send(const Namespaces& namespaces, const Encode& encode) = 0;
    /// Takes the result, which may be moved from; null when the server gave none. `status` is that
    /// of the call.
    virtual void TakeAnswer(UA_StatusCode status, UA_CallMethodResult* result) = 0;
    /// Lets nobody wait for it any longer: nobody knows if it ran. `isOverdue`: since no answer
    /// came in time.
    virtual void Lose(bool isOverdue) noexcept = 0;
    /// Names the method and the path for messages: "List of 'a/b'".
    [[nodiscard]] virtual std::string Describe() const = 0;
    /// Returns true for a call whose work may take longer than the time that answers have.
    [[nodiscard]] virtual bool MayTakeLong() const noexcept = 0;
};

using PostedCallPointer = std::shared_ptr<PostedCall>;

} // namespace Client
