#pragma once

#include "Pool.h"
#include "Random.h"
#include "Value.h"

#include <cstddef>
#include <vector>

namespace Fuzz {

/// Makes up and changes values of any type by the library's descriptions of its types. The values
/// can be encoded, but need not make sense.
class Mutator
{
public:
    Mutator(Random& random, const Pool& pool)
        : random(random)
        , pool(pool)
    {}

    /// Fills a value. REQUIRES: it is empty. `depth` counts the values that it is nested in.
    void Fill(void* value, const UA_DataType& type, unsigned depth = 0);
    /// Puts a value made up of a scalar, an array or a matrix into an empty variant.
    void FillVariant(UA_Variant& variant, const UA_DataType& type, unsigned depth = 0);
    /// Puts a structure made up of this type into an empty extension object.
    void FillExtension(UA_ExtensionObject& object, const UA_DataType& type, unsigned depth = 0);
    /// Changes one place of the value, anywhere in it; seldom one of its first member, a request's
    /// header.
    void Mutate(void* value, const UA_DataType& type);

private:
    /// A value within a value, or an array: its size, with the pointer to its elements behind it.
    struct Place
    {
        void* at;
        const UA_DataType* type;
        bool isArray;
    };

    void FillMembers(void* value, const UA_DataType& type, unsigned depth);
    bool FillPlain(void* value, const UA_DataType& type);
    bool FillText(void* value, const UA_DataType& type);
    void FillNested(void* value, const UA_DataType& type, unsigned depth);
    void FillDataValue(UA_DataValue& value, unsigned depth);
    void FillAnyExtension(UA_ExtensionObject& object, unsigned depth);
    void FillDiagnostics(UA_DiagnosticInfo& information, unsigned depth);
    void FillArray(std::size_t& size, void*& elements, const UA_DataType& type, std::size_t wanted,
                   unsigned depth);
    void Collect(void* value, const UA_DataType& type, std::vector<Place>& places, unsigned depth);
    void CollectMembers(void* value, const UA_DataType& type, std::vector<Place>& places,
                        unsigned depth);
    void CollectElements(void* elements, std::size_t count, const UA_DataType& type,
                         std::vector<Place>& places, unsigned depth);
    void MutateArray(std::size_t& size, void*& elements, const UA_DataType& type);

    Random& random;
    const Pool& pool;
};

} // namespace Fuzz
