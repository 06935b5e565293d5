#pragma once

#include "Core/NodeId.h"

/// The identifiers of namespace 0 that models use (OPC 10000-6, annex A).
namespace Core::Embedding::BaseNodes {

inline const NodeId byte{0, 3};
inline const NodeId uInt16{0, 5};
inline const NodeId uInt32{0, 7};
inline const NodeId uInt64{0, 9};
inline const NodeId localizedText{0, 21};
inline const NodeId structure{0, 22};
inline const NodeId baseDataType{0, 24};
inline const NodeId enumeration{0, 29};
inline const NodeId argument{0, 296};
inline const NodeId argumentXmlEncoding{0, 297};
inline const NodeId enumValueType{0, 7594};
inline const NodeId enumValueTypeXmlEncoding{0, 7616};

inline const NodeId hasModellingRule{0, 37};
inline const NodeId hasEncoding{0, 38};
inline const NodeId hasTypeDefinition{0, 40};
inline const NodeId generatesEvent{0, 41};
inline const NodeId hasSubtype{0, 45};
inline const NodeId hasProperty{0, 46};
inline const NodeId hasComponent{0, 47};

inline const NodeId propertyType{0, 68};
inline const NodeId dataTypeEncodingType{0, 76};
inline const NodeId mandatory{0, 78};
inline const NodeId optional{0, 80};

} // namespace Core::Embedding::BaseNodes
