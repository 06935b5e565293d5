#pragma once

#include "Core/Value.h"
#include "Directories.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Inputs and outputs of methods.
namespace FileObjects {

[[nodiscard]] inline Core::Value ToUInt64(std::uint64_t number)
{
    return static_cast<unsigned long>(number);
}

/// Returns a text; an empty one for a null text, which the host gives as an empty value.
[[nodiscard]] inline std::string GetText(const Core::Value& value)
{
    return value.IsEmpty() ? std::string() : value.Get<std::string>();
}

/// Returns the elements of an array; none for a null one.
template <typename T>
[[nodiscard]] std::vector<T> GetElements(const Core::Value& value)
{
    return value.IsEmpty() ? std::vector<T>() : value.Get<std::vector<T>>();
}

template <typename T>
[[nodiscard]] Core::Value ToArray(std::vector<T> elements)
{
    const auto size = static_cast<unsigned int>(elements.size());
    return Core::Value::MakeArray(std::move(elements), {size});
}

/// Adds the outputs that tell the entries and where the next page begins.
inline void AddEntries(Listing listing, std::vector<Core::Value>& outputs)
{
    outputs.push_back(ToArray(std::move(listing.names)));
    outputs.push_back(ToArray(std::move(listing.kinds)));
    outputs.push_back(ToArray(std::move(listing.sizes)));
    outputs.push_back(ToArray(std::move(listing.times)));
    outputs.push_back(ToUInt64(listing.next));
}

} // namespace FileObjects
