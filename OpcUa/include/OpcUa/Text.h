#pragma once

#include <string>
#include <string_view>

namespace OpcUa {

/// OPC UA strings are UTF-8, but names of files are any bytes. This escape turns every byte string
/// into a UTF-8 string and back:
///
/// - valid UTF-8 stays the same, byte for byte;
/// - a byte that is not part of valid UTF-8 becomes one of the 128 private-use characters
///   U+10F780 to U+10F7FF: byte 0x80 + n becomes U+10F780 + n (bytes below 0x80 are always valid);
/// - of these characters in the text itself, each byte is escaped, so that they differ from
///   escapes.
///
/// Unescaping turns each such character back into its byte. Both functions take any bytes, and
/// neither fails.
[[nodiscard]] std::string EscapeToUtf8(std::string_view bytes);
[[nodiscard]] std::string UnescapeFromUtf8(std::string_view text);

} // namespace OpcUa
