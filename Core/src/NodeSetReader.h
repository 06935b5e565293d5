#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/NodeId.h"
#include "NodeSetContents.h"
#include "NodeSetDocument.h"
#include "NodeSetGraph.h"

#include <filesystem>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace Core::Embedding {

/// Reads one NodeSet2 file into a model, once. A failure leaves the model half extended, so the
/// caller extends a copy.
class NodeSetReader
{
public:
    /// Throws as NodeSetDocument does. The model outlives the reader.
    NodeSetReader(const std::filesystem::path& file, InformationModel& model);

    /// Throws InvalidModelException.
    void Read();

private:
    void ReadModels();
    [[nodiscard]] ModelDescription ReadModel(const pugi::xml_node& declaration) const;
    [[nodiscard]] bool IsKnown(const std::string& modelUri) const;
    void CheckRequiredModels(const pugi::xml_node& declaration) const;
    [[nodiscard]] std::unordered_set<int> GetOwnNamespaces() const;

    /// Adds a type after its supertypes; does nothing when it has been added.
    void AddType(const NodeSetContents& contents, const NodeElement& element);
    [[nodiscard]] static bool IsExtensionOf(NodeClass nodeClass, std::string_view name);
    void CheckExtensions(const NodeSetGraph& graph) const;
    void CheckGeneratedEvents(const NodeSetGraph& graph) const;

    InformationModel& model;
    NodeSetDocument document;
    std::vector<ModelDescription> ownModels;
    std::unordered_set<NodeId, HashNodeId> begunTypes; // types whose supertypes are being added
};

} // namespace Core::Embedding
