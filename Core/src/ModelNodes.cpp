#include "ModelNodes.h"

#include <memory>

namespace Core {

namespace {

NodeIdentity GetIdentity(const Embedding::NodeDescription& description)
{
    return {description.id, description.browseName};
}

void AddSuperType(NodesToAdd& result, const NodeId& superType, const NodeId& type)
{
    if (!superType.IsEmpty())
        result.references.push_back({References::hasSubtype, superType, type});
}

void AddDataType(NodesToAdd& result, const Embedding::DataTypeDescription& type,
                 const NodeEnvironment& environment)
{
    result.nodes.push_back(std::make_shared<BasicNode>(GetIdentity(type), environment));
    AddSuperType(result, type.superType, type.id);
}

/// Returns the outcomes of the fields of an event type, inherited ones included.
BaseEventFields::Outcomes GetOutcomes(const Embedding::InformationModel& model,
                                      const NodeId& eventType, const EventArguments& arguments)
{
    BaseEventFields::Outcomes outcomes;
    for (NodeId id = eventType; !id.IsEmpty(); id = model.GetObjectType(id).superType) {
        for (const auto& field : model.GetObjectType(id).eventFields) {
            if (field.outcome)
                outcomes.emplace_back(arguments.GetFieldIndex(field.browseName), *field.outcome);
        }
    }
    return outcomes;
}

void AddObjectType(NodesToAdd& result, const Embedding::ObjectTypeDescription& type,
                   EventArguments arguments, BaseEventFields::Outcomes outcomes,
                   const NodeEnvironment& environment)
{
    result.nodes.push_back(std::make_shared<ObjectTypeNode>(GetIdentity(type), environment,
                                                            type.displayName, std::move(arguments),
                                                            std::move(outcomes)));
    AddSuperType(result, type.superType, type.id);
    for (const auto& method : type.methods) {
        result.nodes.push_back(std::make_shared<BasicNode>(GetIdentity(method), environment));
        result.references.push_back({References::hasComponent, type.id, method.id});
    }
    for (const auto& event : type.generatedEvents)
        result.references.push_back({References::generatesEvent, type.id, event});
}

} // namespace

ModelExtent GetExtent(const Embedding::InformationModel& model)
{
    return {model.GetObjectTypes().size(), model.GetDataTypes().size()};
}

NodesToAdd MakeModelNodes(const Embedding::InformationModel& model, const ModelExtent& known,
                          const NodeEnvironment& environment)
{
    NodesToAdd result;
    const auto& dataTypes = model.GetDataTypes();
    for (auto i = known.dataTypes; i < dataTypes.size(); ++i)
        AddDataType(result, dataTypes[i], environment);
    const auto& objectTypes = model.GetObjectTypes();
    for (auto i = known.objectTypes; i < objectTypes.size(); ++i) {
        auto arguments = model.GetEventArguments(objectTypes[i].id);
        auto outcomes = GetOutcomes(model, objectTypes[i].id, arguments);
        AddObjectType(result, objectTypes[i], std::move(arguments), std::move(outcomes),
                      environment);
    }
    return result;
}

} // namespace Core
