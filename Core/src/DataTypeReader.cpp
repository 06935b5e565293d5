#include "DataTypeReader.h"

#include "BaseNodes.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <iterator>
#include <set>
#include <utility>

namespace Core::Embedding {

namespace {

constexpr const char* enumStrings = "EnumStrings";
constexpr const char* enumValues = "EnumValues";
constexpr const char* optionSetValues = "OptionSetValues";

/// Returns the number of bits of an unsigned integer type or a subtype of one; 0 for others.
int GetWidth(const InformationModel& model, const NodeId& type)
{
    const std::array widths{std::pair{BaseNodes::byte, 8}, std::pair{BaseNodes::uInt16, 16},
                            std::pair{BaseNodes::uInt32, 32}, std::pair{BaseNodes::uInt64, 64}};
    const auto* const found = std::ranges::find_if(
        widths, [&](const auto& width) { return model.IsSubtypeOf(type, width.first); });
    return found == widths.end() ? 0 : found->second;
}

std::set<long> GetValues(const std::vector<DataTypeField>& fields)
{
    std::set<long> values;
    for (const auto& field : fields)
        values.insert(field.value);
    return values;
}

} // namespace

DataTypeReader::DataTypeReader(const NodeSetContents& contents)
    : contents(contents)
    , document(contents.GetDocument())
    , graph(contents.GetGraph())
{}

DataTypeDescription DataTypeReader::Read(const NodeElement& element, const NodeId& superType) const
{
    auto type = contents.Describe<DataTypeDescription>(element);
    type.superType = superType;
    type.isAbstract = document.ParseFlag(element.xml, "IsAbstract");
    type.kind = ReadKind(element, type);
    ReadContents(element, type);
    CheckNames(element, type);
    return type;
}

DataTypeKind DataTypeReader::ReadKind(const NodeElement& element,
                                      const DataTypeDescription& type) const
{
    const auto inherited = contents.GetModel().GetDataType(type.superType).kind;
    if (inherited != DataTypeKind::Simple)
        return inherited;
    const auto definition = GetChild(element.xml, "Definition");
    const auto* const property = FindProperty(element);
    const bool isOptionSet = document.ParseFlag(definition, "IsOptionSet") ||
                             (property != nullptr && contents.IsNamed(*property, optionSetValues));
    if (!isOptionSet && definition)
        document.Fail(definition,
                      "the definition is that of neither a structure nor an enumeration "
                      "nor an option set");
    return isOptionSet ? DataTypeKind::OptionSet : DataTypeKind::Simple;
}

void DataTypeReader::ReadContents(const NodeElement& element, DataTypeDescription& type) const
{
    if (type.kind == DataTypeKind::Enumeration || type.kind == DataTypeKind::OptionSet)
        return ReadNamedValues(element, type);
    if (const auto* const property = FindProperty(element))
        document.Fail(property->xml, "a data type of this kind has no properties");
    if (type.kind == DataTypeKind::Structure)
        ReadStructure(element, type);
}

void DataTypeReader::ReadStructure(const NodeElement& element, DataTypeDescription& type) const
{
    const auto definition = GetChild(element.xml, "Definition");
    if (!definition && !type.isAbstract)
        document.Fail(element.xml, "the structure has no definition");
    if (document.ParseFlag(definition, "IsUnion"))
        document.Fail(definition, "unions are not supported");
    type.fields = contents.GetModel().GetDataType(type.superType).fields;
    for (const auto& xml : GetChildren(definition, "Field"))
        type.fields.push_back(ReadMember(xml));
    ReadEncodings(element, type);
}

DataTypeField DataTypeReader::ReadMember(const pugi::xml_node& xml) const
{
    auto member = ReadName(xml);
    if (document.ParseFlag(xml, "IsOptional") || document.ParseFlag(xml, "AllowSubTypes"))
        document.Fail(xml, fmt::format("the member '{}' is optional or may be of a subtype, which "
                                       "is not supported",
                                       member.name));
    member.dataType = contents.ReadDataTypeId(xml, xml.attribute("DataType").as_string("i=24"));
    member.valueRank = contents.ReadValueRank(xml, xml.attribute("ValueRank").value());
    return member;
}

void DataTypeReader::ReadEncodings(const NodeElement& element, DataTypeDescription& type) const
{
    for (const auto* const encoding : graph.GetTargets(element.id, BaseNodes::hasEncoding)) {
        if (!contents.IsNamed(*encoding, "Default Binary"))
            continue;
        if (!type.binaryEncodingId.IsEmpty())
            document.Fail(encoding->xml, "the structure has a binary encoding already");
        type.binaryEncodingId = encoding->id;
    }
    if (type.binaryEncodingId.IsEmpty() && !type.isAbstract)
        document.Fail(element.xml, "the structure has no encoding 'Default Binary'");
}

void DataTypeReader::ReadNamedValues(const NodeElement& element, DataTypeDescription& type) const
{
    for (const auto& xml : GetChildren(GetChild(element.xml, "Definition"), "Field"))
        type.fields.push_back(ReadNamedValue(xml));
    if (const auto* const property = FindProperty(element)) {
        auto texts = ReadTexts(*property, type);
        if (type.fields.empty())
            type.fields = std::move(texts);
        else
            CheckTexts(*property, type, texts);
    }
    if (type.fields.empty() && !type.isAbstract)
        document.Fail(element.xml, "the data type names no values");
    if (GetValues(type.fields).size() != type.fields.size())
        document.Fail(element.xml, "the data type gives two names to one value");
    if (type.kind == DataTypeKind::OptionSet)
        CheckBits(element, type);
}

DataTypeField DataTypeReader::ReadNamedValue(const pugi::xml_node& xml) const
{
    auto field = ReadName(xml);
    field.value = document.ParseNumber<int>(xml, xml.attribute("Value").value(),
                                            fmt::format("the value of '{}'", field.name));
    return field;
}

DataTypeReader::Fields DataTypeReader::ReadTexts(const NodeElement& property,
                                                 DataTypeDescription& type) const
{
    const bool isEnumeration = type.kind == DataTypeKind::Enumeration;
    const bool hasValues = isEnumeration && contents.IsNamed(property, enumValues);
    const char* const listName = isEnumeration ? enumStrings : optionSetValues;
    if (!hasValues && !contents.IsNamed(property, listName))
        document.Fail(property.xml, "a data type of this kind has no such property");
    type.textsPropertyId = property.id;
    type.textsPropertyName = hasValues ? enumValues : listName;
    return hasValues ? ReadEnumValues(property) : ReadTextList(property);
}

// The position of a text is its value; an option set has empty texts for bits without meaning.
DataTypeReader::Fields DataTypeReader::ReadTextList(const NodeElement& property) const
{
    Fields texts;
    long value = 0;
    for (const auto& xml : GetChildren(contents.GetValue(property, "ListOfLocalizedText"))) {
        DataTypeField field;
        field.name = GetText(GetChild(xml, "Text"));
        field.value = value++;
        if (!field.name.empty())
            texts.push_back(std::move(field));
    }
    return texts;
}

DataTypeReader::Fields DataTypeReader::ReadEnumValues(const NodeElement& property) const
{
    Fields texts;
    for (const auto& xml :
         contents.GetStructures(property, BaseNodes::enumValueType,
                                BaseNodes::enumValueTypeXmlEncoding, "EnumValueType")) {
        DataTypeField field;
        field.name = GetText(GetChild(GetChild(xml, "DisplayName"), "Text"));
        field.description = GetText(GetChild(GetChild(xml, "Description"), "Text"));
        field.value = document.ParseNumber<int>(xml, GetText(GetChild(xml, "Value")),
                                                "an enumeration's value");
        texts.push_back(std::move(field));
    }
    return texts;
}

void DataTypeReader::CheckTexts(const NodeElement& property, const DataTypeDescription& type,
                                const Fields& texts) const
{
    if (GetValues(texts) != GetValues(type.fields))
        document.Fail(property.xml, fmt::format("{} and the definition name different values",
                                                type.textsPropertyName));
}

void DataTypeReader::CheckBits(const NodeElement& element, const DataTypeDescription& type) const
{
    const int width = GetWidth(contents.GetModel(), type.superType);
    if (width == 0)
        document.Fail(element.xml, "an option set is a subtype of Byte, UInt16, UInt32 or UInt64");
    for (const auto& field : type.fields)
        if (field.value < 0 || field.value >= width)
            document.Fail(element.xml, fmt::format("the bit {} of '{}' is not one of {} bits",
                                                   field.value, field.name, width));
}

DataTypeField DataTypeReader::ReadName(const pugi::xml_node& xml) const
{
    DataTypeField field;
    field.name = xml.attribute("Name").value();
    field.description = GetText(GetChild(xml, "Description"));
    if (field.name.empty())
        document.Fail(xml, "a field of the definition has no name");
    return field;
}

void DataTypeReader::CheckNames(const NodeElement& element, const DataTypeDescription& type) const
{
    std::set<std::string> names;
    for (const auto& field : type.fields)
        if (!names.insert(field.name).second)
            document.Fail(element.xml,
                          fmt::format("the data type has two fields '{}'", field.name));
}

const NodeElement* DataTypeReader::FindProperty(const NodeElement& element) const
{
    const auto properties = graph.GetTargets(element.id, BaseNodes::hasProperty);
    if (properties.size() > 1)
        document.Fail(properties[1]->xml, "a data type has at most one property");
    return properties.empty() ? nullptr : properties.front();
}

} // namespace Core::Embedding
