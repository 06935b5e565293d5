#pragma once

#include "Mutator.h"
#include "Pool.h"
#include "Random.h"
#include "Value.h"

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// Makes requests that a client might send: of all services, with the host's own nodes, methods and
/// numbers. Their answers depend on the rest of the run.
class Requests
{
public:
    /// `fileMethods`: the namespace of the module's methods.
    Requests(Random& random, const Pool& pool, Mutator& mutator, std::uint16_t fileMethods)
        : random(random)
        , pool(pool)
        , mutator(mutator)
        , fileMethods(fileMethods)
    {}

    /// Makes a request of any service but those that make and end sessions. One that names a
    /// subscription mostly names this one.
    [[nodiscard]] Value Make(std::uint32_t subscription);
    [[nodiscard]] Value MakeCreateSession();
    /// Makes a login. `isPlausible`: without a user; otherwise with any token.
    [[nodiscard]] Value MakeActivateSession(bool isPlausible);
    [[nodiscard]] Value MakeCloseSession();

private:
    [[nodiscard]] Value MakeForService();
    [[nodiscard]] Value MakeCall();
    [[nodiscard]] Value MakeRead();
    [[nodiscard]] Value MakeBrowse();
    [[nodiscard]] Value MakeBrowseNext();
    [[nodiscard]] Value MakeCreateSubscription();
    [[nodiscard]] Value MakeCreateItems();
    [[nodiscard]] Value MakeModifyItems();
    [[nodiscard]] Value MakePublish();
    [[nodiscard]] Value MakeAny();

    void FillFileCall(UA_CallMethodRequest& call);
    void FillAnyCall(UA_CallMethodRequest& call);
    void FillArray(UA_Variant& input, const UA_DataType& type, std::size_t length);
    void FillWithChild(UA_Variant& input, std::size_t parent);
    void FillInput(UA_Variant& input, const InputType& declared);
    void FillFilter(UA_ExtensionObject& filter);
    void FillWhere(UA_ContentFilter& where);
    void FillSelect(UA_SimpleAttributeOperand& clause);
    void FillParameters(UA_MonitoringParameters& parameters);

    Random& random;
    const Pool& pool;
    Mutator& mutator;
    const std::uint16_t fileMethods;
};

} // namespace Fuzz
