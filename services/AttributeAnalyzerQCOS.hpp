#pragma once
// Host class "dependencies.internal.attribute.AttributeAnalyzer": every
// analyzer, built-in or written in the host language. Its method "analyze"
// runs the native analyzer that an object of the class wraps; host subclasses
// define their own.

#include "platform/host/Qcos.hpp"

namespace dependency::services {

class AttributeAnalyzerQCOS : public qcos::QcosFactoryClassInfo {
public:
    AttributeAnalyzerQCOS();
};

}  // namespace dependency::services
