#pragma once
// Host class "dependencies.internal.attribute.Severity": an enumeration with
// the members "Information" = 0, "Warning" = 1 and "Problem" = 2.

#include "attribute/Severity.hpp"
#include "platform/host/Qcos.hpp"

namespace dependency::services {

class SeverityQCOS : public qcos::factory::EnumClassInfo<attribute::Severity> {
public:
    SeverityQCOS();
};

// The enumeration member whose number is the severity's value, as a host scalar.
qxArrayPtr toSeverityQxArray(attribute::Severity severity);
// The severity of a member held in element 0 of a host array.
attribute::Severity fromSeverityQxArray(qxArray const& array);

}  // namespace dependency::services
