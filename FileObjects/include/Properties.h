#pragma once

#include "Core/NodeProvider.h"
#include "Folders.h"
#include "Keys.h"
#include "MimeTypes.h"
#include "OpenFiles.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace FileObjects {

/// The properties of the nodes: which there are, and their values. Any thread.
class Properties
{
public:
    /// All outlive this object.
    Properties(const Folders& folders, const MimeTypes& mimeTypes, OpenFiles& openFiles,
               std::chrono::milliseconds processingTimeout);

    /// Returns the names of the properties that a node of a kind has.
    [[nodiscard]] static std::vector<std::string> GetNames(NodeKind kind);
    /// Returns nothing for a property that a node of this kind does not have.
    [[nodiscard]] static std::optional<Core::ProvidedNode>
    Describe(NodeKind kind, const std::string& name, int namespaceIndex);

    /// Throws Core::StatusException.
    [[nodiscard]] Core::Value Read(const Key& node) const;

private:
    struct Property;
    static const std::vector<Property>& GetAll();
    [[nodiscard]] static const Property* Find(NodeKind kind, const std::string& name);

    [[nodiscard]] struct stat GetState(const Key& node) const;
    [[nodiscard]] bool IsWritable(const Key& node) const;
    [[nodiscard]] OpenFiles::FilePointer RequireTemporary(const Key& node) const;

    const Folders& folders;
    const MimeTypes& mimeTypes;
    OpenFiles& openFiles;
    const std::chrono::milliseconds processingTimeout;
};

} // namespace FileObjects
