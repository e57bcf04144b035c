#pragma once
// Host class "dependencies.internal.attribute.AttributeIdentity": the kind of a
// finding, with the properties "ID", "Name" and "Severity" and a constructor
// AttributeIdentity(ID, Name, Severity).

#include "platform/host/Qcos.hpp"

namespace dependency::services {

class AttributeIdentityQCOS : public qcos::QcosFactoryClassInfo {
public:
    AttributeIdentityQCOS();
};

}  // namespace dependency::services
