#include "services/SeverityQCOS.hpp"

#include "services/HostClassNames.hpp"

namespace dependency::services {

using attribute::Severity;

SeverityQCOS::SeverityQCOS() : EnumClassInfo(SeverityClassName) {
    addMember("Information", Severity::Information);
    addMember("Warning", Severity::Warning);
    addMember("Problem", Severity::Problem);
}

qxArrayPtr toSeverityQxArray(Severity severity) {
    return qcos::omCreateQCOSScalar(qcos::omCreateEnumeration(SeverityClassName, static_cast<std::int64_t>(severity)));
}

Severity fromSeverityQxArray(qxArray const& array) {
    auto const* member = qcos::cosiGetArrayElement(array, 0);
    auto const value = member->getEnumerationValue();
    if (!value || member->getClassName() != SeverityClassName) {
        throw qcos::HostError("qcos:type:wrongClass", "Expected a member of '" + std::string(SeverityClassName) +
                                                          "', got an object of class '" + member->getClassName() +
                                                          "'.");
    }
    return static_cast<Severity>(*value);
}

}  // namespace dependency::services
