#pragma once

#include "Core/Embedding/InformationModel.h"
#include "NodeSetContents.h"

#include <optional>
#include <vector>

namespace Core::Embedding {

/// Reads a data type of a document with its fields, texts and encoding. Fails as
/// NodeSetDocument::Fail does.
class DataTypeReader
{
public:
    /// The contents must outlive the reader.
    explicit DataTypeReader(const NodeSetContents& contents);

    /// REQUIRES: the supertype is in the model.
    [[nodiscard]] DataTypeDescription Read(const NodeElement& element,
                                           const NodeId& superType) const;

private:
    using Fields = std::vector<DataTypeField>;

    [[nodiscard]] DataTypeKind ReadKind(const NodeElement& element,
                                        const DataTypeDescription& type) const;
    void ReadContents(const NodeElement& element, DataTypeDescription& type) const;

    void ReadStructure(const NodeElement& element, DataTypeDescription& type) const;
    [[nodiscard]] DataTypeField ReadMember(const pugi::xml_node& xml) const;
    void ReadEncodings(const NodeElement& element, DataTypeDescription& type) const;

    void ReadNamedValues(const NodeElement& element, DataTypeDescription& type) const;
    [[nodiscard]] DataTypeField ReadNamedValue(const pugi::xml_node& xml) const;
    [[nodiscard]] Fields ReadTexts(const NodeElement& property, DataTypeDescription& type) const;
    [[nodiscard]] Fields ReadTextList(const NodeElement& property) const;
    [[nodiscard]] Fields ReadEnumValues(const NodeElement& property) const;
    void CheckTexts(const NodeElement& property, const DataTypeDescription& type,
                    const Fields& texts) const;
    void CheckBits(const NodeElement& element, const DataTypeDescription& type) const;

    [[nodiscard]] DataTypeField ReadName(const pugi::xml_node& xml) const;
    void CheckNames(const NodeElement& element, const DataTypeDescription& type) const;
    [[nodiscard]] const NodeElement* FindProperty(const NodeElement& element) const;

    const NodeSetContents& contents;
    const NodeSetDocument& document;
    const NodeSetGraph& graph;
};

} // namespace Core::Embedding
