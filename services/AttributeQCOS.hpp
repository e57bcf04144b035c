#pragma once
// Host class "dependencies.internal.attribute.Attribute": one finding, with the
// properties "ID", "Name", "Identity" and "Severity" and the methods "hasFix"
// and "applyFix".

#include "platform/host/Qcos.hpp"

namespace dependency::services {

class AttributeQCOS : public qcos::QcosFactoryClassInfo {
public:
    AttributeQCOS();
};

}  // namespace dependency::services
