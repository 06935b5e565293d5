#pragma once

#include "Core/Embedding/InformationModel.h"
#include "NodeSetContents.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace Core::Embedding {

/// Reads an object type or event type of a document with its methods and fields. Fails as
/// NodeSetDocument::Fail does.
class ObjectTypeReader
{
public:
    /// The contents must outlive the reader.
    explicit ObjectTypeReader(const NodeSetContents& contents);

    /// REQUIRES: the supertype is in the model.
    [[nodiscard]] ObjectTypeDescription Read(const NodeElement& element,
                                             const NodeId& superType) const;

private:
    using ArgumentList = std::vector<ArgumentDescription>;

    void ReadMethods(const NodeElement& element, ObjectTypeDescription& type) const;
    [[nodiscard]] MethodDescription ReadMethod(const NodeElement& element) const;
    [[nodiscard]] std::optional<ChangeDescription>
    ReadChange(const NodeElement& element, const MethodDescription& method) const;
    [[nodiscard]] ChangeDescription ParseChange(const pugi::xml_node& xml) const;
    void RequireArgument(const pugi::xml_node& xml, const std::string& name,
                         std::initializer_list<const ArgumentList*> lists) const;
    [[nodiscard]] ArgumentList ReadArguments(const NodeElement& property) const;
    [[nodiscard]] ArgumentDescription ReadArgument(const pugi::xml_node& xml) const;
    [[nodiscard]] std::vector<unsigned int> ReadArrayDimensions(const pugi::xml_node& xml,
                                                                int valueRank) const;
    void ReadEventFields(const NodeElement& element, ObjectTypeDescription& type) const;
    [[nodiscard]] EventFieldDescription ReadEventField(const NodeElement& element) const;
    [[nodiscard]] static bool IsHandle(const NodeElement& element);
    [[nodiscard]] std::optional<OutcomeDescription> ReadOutcome(const NodeElement& element) const;
    void ReadExtensions(const NodeElement& element, ObjectTypeDescription& type) const;
    [[nodiscard]] Guid ReadFactoryGuid(const pugi::xml_node& xml) const;
    [[nodiscard]] InstanceDescription ReadInstance(const pugi::xml_node& xml) const;
    [[nodiscard]] SessionObjectsDescription ReadSessionObjects(const pugi::xml_node& xml) const;
    [[nodiscard]] std::string ReadName(const pugi::xml_node& xml, const char* attribute) const;

    const NodeSetContents& contents;
    const NodeSetDocument& document;
    const NodeSetGraph& graph;
};

} // namespace Core::Embedding
