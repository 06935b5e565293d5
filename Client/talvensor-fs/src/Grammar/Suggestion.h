#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// Returns "; did you mean 'NAME'?" with the name that a misspelt word is most like; empty when
/// it is like none.
[[nodiscard]] std::string Suggest(std::string_view word, const std::vector<std::string>& names);

} // namespace Cli
