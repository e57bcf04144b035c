#pragma once
// Host class "dependencies.internal.attribute.GraphAttributes": the result of
// one analysis, with the queries "getAttributes" (by node, optionally with a
// minimum severity), "getNodesWith" and "getAllProblemIdentities".

#include "platform/host/Qcos.hpp"

namespace dependency::services {

class GraphAttributesQCOS : public qcos::QcosFactoryClassInfo {
public:
    GraphAttributesQCOS();
};

}  // namespace dependency::services
