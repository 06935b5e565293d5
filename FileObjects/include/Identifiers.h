#pragma once

/// The numbers and names of the published information model
/// (`model/Talvensor.FileObjects.NodeSet2.xml`), which never change.
namespace FileObjects {

inline constexpr const char* moduleUri = "urn:Talvensor:FileObjects";

namespace ObjectType {
inline constexpr unsigned int directory = 1;
inline constexpr unsigned int file = 2;
inline constexpr unsigned int fileTransfer = 3;
inline constexpr unsigned int fileSystem = 4;
inline constexpr unsigned int temporaryFileDropped = 5; ///< an event
} // namespace ObjectType

} // namespace FileObjects
