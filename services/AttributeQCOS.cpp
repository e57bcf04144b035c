#include "services/AttributeQCOS.hpp"

#include "attribute/Attribute.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostObjects.hpp"
#include "services/SeverityQCOS.hpp"

namespace dependency::services {

using attribute::Attribute;

namespace {

std::shared_ptr<Attribute> attributeOf(qcos::COSInterface const& object) {
    return qcos::factory::impl::validateSelfPointer<Attribute>(object);
}

}  // namespace

AttributeQCOS::AttributeQCOS() : QcosFactoryClassInfo(AttributeClassName) {
    addSuperclass(HeterogeneousClassName);

    addProperty(qcos::QcosProperty::withGetter(
        "ID", "any", [](auto const& object) { return qxArray::createString(attributeOf(object)->getID()); }));
    addProperty(qcos::QcosProperty::withGetter(
        "Name", "any", [](auto const& object) { return qxArray::createString(attributeOf(object)->getName()); }));

    qcos::QcosMethod hasFix("hasFix");
    hasFix.addSignature(qcos::createSignatureImpl({"logical scalar"}, {AttributeClassName}),
                        [](std::span<qxArray const* const> inputs, int) {
                            return detail::single(matrix::to_qorvex(attributeOf(detail::self(inputs))->hasFix()));
                        });
    addMethod(std::move(hasFix));

    qcos::QcosMethod applyFix("applyFix");
    applyFix.addSignature(qcos::createSignatureImpl({"void"}, {AttributeClassName}),
                          [](std::span<qxArray const* const> inputs, int) {
                              // Without a fix this throws std::bad_function_call, which reaches the caller.
                              attributeOf(detail::self(inputs))->applyFix();
                              return std::vector<qxArrayPtr>{};
                          });
    addMethod(std::move(applyFix));

    // The identity object itself, not a copy of it.
    addProperty(qcos::QcosProperty::withGetter("Identity", AttributeIdentityClassName, [](auto const& object) {
        return matrix::to_qorvex(detail::toHostObject(attributeOf(object)->getIdentity()));
    }));
    addProperty(qcos::QcosProperty::withGetter("Severity", SeverityClassName, [](auto const& object) {
        return toSeverityQxArray(attributeOf(object)->getSeverity());
    }));
}

}  // namespace dependency::services
