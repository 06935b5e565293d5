#include "ObjectTypeReader.h"

#include "BaseNodes.h"
#include "Core/Exception.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>
#include <utility>

namespace Core::Embedding {

ObjectTypeReader::ObjectTypeReader(const NodeSetContents& contents)
    : contents(contents)
    , document(contents.GetDocument())
    , graph(contents.GetGraph())
{}

ObjectTypeDescription ObjectTypeReader::Read(const NodeElement& element,
                                             const NodeId& superType) const
{
    auto type = contents.Describe<ObjectTypeDescription>(element);
    type.superType = superType;
    type.isAbstract = document.ParseFlag(element.xml, "IsAbstract");
    type.generatedEvents = graph.GetTargetIds(element.id, BaseNodes::generatesEvent);
    ReadExtensions(element, type);
    ReadMethods(element, type);
    ReadEventFields(element, type);
    return type;
}

// Calls go by name, so a name occurs once in a type and all its supertypes.
void ObjectTypeReader::ReadMethods(const NodeElement& element, ObjectTypeDescription& type) const
{
    std::vector<std::string> names;
    for (const auto& inherited : contents.GetModel().GetMethods(type.superType))
        names.push_back(inherited.browseName.GetName());
    for (const auto* const target : graph.GetTargets(element.id, BaseNodes::hasComponent)) {
        auto method = ReadMethod(*target);
        const auto& name = method.browseName.GetName();
        if (std::ranges::find(names, name) != names.end())
            document.Fail(target->xml, fmt::format("the type has a method '{}' already", name));
        names.push_back(name);
        type.methods.push_back(std::move(method));
    }
}

MethodDescription ObjectTypeReader::ReadMethod(const NodeElement& element) const
{
    auto method = contents.Describe<MethodDescription>(element);
    for (const auto* const property : graph.GetTargets(element.id, BaseNodes::hasProperty)) {
        const bool isInput = contents.IsNamed(*property, "InputArguments");
        if (!isInput && !contents.IsNamed(*property, "OutputArguments"))
            document.Fail(property->xml, "a method has no properties but InputArguments and "
                                         "OutputArguments");
        auto& id = isInput ? method.inputArgumentsId : method.outputArgumentsId;
        if (!id.IsEmpty())
            document.Fail(property->xml, "the method has this property already");
        id = property->id;
        (isInput ? method.inputs : method.outputs) = ReadArguments(*property);
    }
    method.change = ReadChange(element, method);
    return method;
}

std::optional<ChangeDescription> ObjectTypeReader::ReadChange(const NodeElement& element,
                                                              const MethodDescription& method) const
{
    std::optional<ChangeDescription> change;
    for (const auto& extension : NodeSetContents::GetExtensions(element)) {
        if (GetLocalName(extension) != "Change")
            document.Fail(extension,
                          fmt::format("the extension '{}' is not known", extension.name()));
        if (change)
            document.Fail(extension, "the method has a change already");
        change = ParseChange(extension);
        for (const auto& name : change->subjects)
            RequireArgument(extension, name, {&method.inputs});
        RequireArgument(extension, change->exceptArgument, {&method.inputs});
        RequireArgument(extension, change->statuses, {&method.outputs});
        RequireArgument(extension, change->handle, {&method.inputs, &method.outputs});
    }
    return change;
}

ChangeDescription ObjectTypeReader::ParseChange(const pugi::xml_node& xml) const
{
    ChangeDescription change;
    std::istringstream subjects(xml.attribute("Subject").value());
    for (std::string subject; subjects >> subject;)
        change.subjects.push_back(subject);
    change.statuses = xml.attribute("Statuses").value();
    change.handle = xml.attribute("Handle").value();
    change.isLast = document.ParseFlag(xml, "Last");
    const std::string except = xml.attribute("Except").value();
    if (except.empty())
        return change;
    const auto equals = std::min(except.find('='), except.size());
    change.exceptArgument = except.substr(0, equals);
    change.exceptValue = document.ParseNumber<int>(
        xml, except.substr(std::min(equals + 1, except.size())), "the number of an exception");
    return change;
}

/// Fails unless the name is empty or that of an argument in one of the lists.
void ObjectTypeReader::RequireArgument(const pugi::xml_node& xml, const std::string& name,
                                       std::initializer_list<const ArgumentList*> lists) const
{
    const bool isKnown = std::ranges::any_of(lists, [&name](const ArgumentList* list) {
        return std::ranges::find(*list, name, &ArgumentDescription::name) != list->end();
    });
    if (!name.empty() && !isKnown)
        document.Fail(xml, fmt::format("the method has no such argument '{}'", name));
}

std::vector<ArgumentDescription> ObjectTypeReader::ReadArguments(const NodeElement& property) const
{
    std::vector<ArgumentDescription> arguments;
    for (const auto& xml : contents.GetStructures(property, BaseNodes::argument,
                                                  BaseNodes::argumentXmlEncoding, "Argument")) {
        auto argument = ReadArgument(xml);
        if (std::ranges::find(arguments, argument.name, &ArgumentDescription::name) !=
            arguments.end())
            document.Fail(xml, fmt::format("there is an argument '{}' already", argument.name));
        arguments.push_back(std::move(argument));
    }
    return arguments;
}

ArgumentDescription ObjectTypeReader::ReadArgument(const pugi::xml_node& xml) const
{
    ArgumentDescription argument;
    argument.name = GetText(GetChild(xml, "Name"));
    if (argument.name.empty())
        document.Fail(xml, "an argument has no name");
    argument.dataType =
        contents.ReadDataTypeId(xml, GetText(GetChild(GetChild(xml, "DataType"), "Identifier")));
    argument.valueRank = contents.ReadValueRank(xml, GetText(GetChild(xml, "ValueRank")));
    argument.arrayDimensions = ReadArrayDimensions(xml, argument.valueRank);
    argument.description = GetText(GetChild(GetChild(xml, "Description"), "Text"));
    return argument;
}

std::vector<unsigned int> ObjectTypeReader::ReadArrayDimensions(const pugi::xml_node& xml,
                                                                int valueRank) const
{
    std::vector<unsigned int> dimensions;
    for (const auto& dimension : GetChildren(GetChild(xml, "ArrayDimensions"), "UInt32"))
        dimensions.push_back(document.ParseNumber<unsigned int>(dimension, GetText(dimension),
                                                                "an array dimension"));
    if (!dimensions.empty() && std::ssize(dimensions) != valueRank)
        document.Fail(xml, fmt::format("an argument of value rank {} has {} array dimensions",
                                       valueRank, dimensions.size()));
    return dimensions;
}

void ObjectTypeReader::ReadEventFields(const NodeElement& element,
                                       ObjectTypeDescription& type) const
{
    auto names = contents.GetModel().GetEventArguments(type.superType).GetFields();
    for (const auto* const property : graph.GetTargets(element.id, BaseNodes::hasProperty)) {
        if (!contents.GetModel().IsSubtypeOf(type.superType, BaseTypes::baseEventType))
            document.Fail(property->xml, "only event types can have properties");
        auto field = ReadEventField(*property);
        if (std::ranges::find(names, field.browseName) != names.end())
            document.Fail(property->xml, fmt::format("the event type has a field '{}' already",
                                                     field.browseName.GetName()));
        names.push_back(field.browseName);
        type.eventFields.push_back(std::move(field));
    }
}

EventFieldDescription ObjectTypeReader::ReadEventField(const NodeElement& element) const
{
    auto field = contents.Describe<EventFieldDescription>(element);
    field.dataType =
        contents.ReadDataTypeId(element.xml, element.xml.attribute("DataType").as_string("i=24"));
    field.valueRank =
        contents.ReadValueRank(element.xml, element.xml.attribute("ValueRank").value());
    field.outcome = ReadOutcome(element);
    field.isHandle = IsHandle(element);
    return field;
}

bool ObjectTypeReader::IsHandle(const NodeElement& element)
{
    return std::ranges::any_of(NodeSetContents::GetExtensions(element), [](const auto& extension) {
        return GetLocalName(extension) == "Handle";
    });
}

std::optional<OutcomeDescription> ObjectTypeReader::ReadOutcome(const NodeElement& element) const
{
    std::optional<OutcomeDescription> outcome;
    for (const auto& extension : NodeSetContents::GetExtensions(element)) {
        if (GetLocalName(extension) == "Handle")
            continue;
        if (GetLocalName(extension) != "Outcome")
            document.Fail(extension,
                          fmt::format("the extension '{}' is not known", extension.name()));
        if (outcome)
            document.Fail(extension, "the field has an outcome already");
        outcome.emplace();
        outcome->success = document.ParseNumber<int>(
            extension, extension.attribute("Success").value(), "the number of a success");
        for (const auto& text : GetChildren(extension, "Text"))
            outcome->texts.emplace(document.ParseNumber<int>(text, text.attribute("Value").value(),
                                                             "the number of an outcome"),
                                   GetText(text));
    }
    return outcome;
}

void ObjectTypeReader::ReadExtensions(const NodeElement& element, ObjectTypeDescription& type) const
{
    const auto requireFirst = [this](const auto& known, const pugi::xml_node& xml) {
        if (known)
            document.Fail(xml, fmt::format("the type has the extension '{}' already", xml.name()));
    };
    for (const auto& extension : NodeSetContents::GetExtensions(element)) {
        const auto name = GetLocalName(extension);
        if (name == "BehaviourFactory") {
            requireFirst(type.behaviourFactory, extension);
            type.behaviourFactory = ReadFactoryGuid(extension);
        } else if (name == "Instance") {
            requireFirst(type.instance, extension);
            type.instance = ReadInstance(extension);
        } else if (name == "SessionObjects") {
            requireFirst(type.sessionObjects, extension);
            type.sessionObjects = ReadSessionObjects(extension);
        } else {
            document.Fail(extension,
                          fmt::format("the extension '{}' is not known", extension.name()));
        }
    }
    if (type.instance && type.sessionObjects)
        document.Fail(element.xml, "a type with one object has no objects of sessions");
}

InstanceDescription ObjectTypeReader::ReadInstance(const pugi::xml_node& xml) const
{
    InstanceDescription instance;
    instance.id = document.ParseNodeId(xml, xml.attribute("Id").value());
    instance.browseName = document.ParseQualifiedName(xml, ReadName(xml, "Name"));
    std::istringstream parents(xml.attribute("Parents").value());
    for (std::string parent; parents >> parent;)
        instance.parents.push_back(document.ParseNodeId(xml, parent));
    if (instance.parents.empty())
        document.Fail(xml, "the object has no parents");
    return instance;
}

SessionObjectsDescription ObjectTypeReader::ReadSessionObjects(const pugi::xml_node& xml) const
{
    return {ReadName(xml, "Folder"), ReadName(xml, "Method"), ReadName(xml, "Object")};
}

std::string ObjectTypeReader::ReadName(const pugi::xml_node& xml, const char* attribute) const
{
    std::string name = xml.attribute(attribute).value();
    if (name.empty())
        document.Fail(xml, fmt::format("the attribute '{}' is missing or empty", attribute));
    return name;
}

Guid ObjectTypeReader::ReadFactoryGuid(const pugi::xml_node& xml) const
{
    try {
        return Guid(xml.attribute("Guid").value());
    } catch (const InvalidArgumentException& failure) {
        document.Fail(xml, fmt::format("the Guid of the behaviour factory is not valid: {}",
                                       failure.GetMessage()));
    }
}

} // namespace Core::Embedding
