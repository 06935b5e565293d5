#pragma once

#include <string>
#include <string_view>

namespace OpcUa {

/// OPC UA strings are UTF-8, the names of files are any bytes. The escape below carries every byte
/// string through a UTF-8 string and back:
///
/// - what is valid UTF-8 stays as it is, byte for byte;
/// - a byte that is not part of valid UTF-8 becomes one character of the 128 private-use code
/// points
///   U+10F780 to U+10F7FF: byte 0x80 + n becomes U+10F780 + n (bytes below 0x80 are always valid);
/// - one of these characters in the text itself has each of its bytes escaped, so that nothing is
///   taken for an escape that is none.
///
/// Unescaping turns each such character back into its byte.
[[nodiscard]] std::string EscapeToUtf8(std::string_view bytes);
[[nodiscard]] std::string UnescapeFromUtf8(std::string_view text);

} // namespace OpcUa
