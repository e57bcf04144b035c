#include "services/AttributeIdentityQCOS.hpp"

#include "attribute/AttributeIdentity.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostObjects.hpp"
#include "services/SeverityQCOS.hpp"

namespace dependency::services {

using attribute::AttributeIdentity;

namespace {

std::shared_ptr<AttributeIdentity> identityOf(qcos::COSInterface const& object) {
    return qcos::factory::impl::validateSelfPointer<AttributeIdentity>(object);
}

}  // namespace

AttributeIdentityQCOS::AttributeIdentityQCOS() : QcosFactoryClassInfo(AttributeIdentityClassName) {
    addSuperclass(HeterogeneousClassName);

    qcos::QcosMethod constructor("AttributeIdentity", qcos::MethodAttributes{true, qcos::Access::Public});
    constructor.addSignature(
        qcos::createSignatureImpl({AttributeIdentityClassName},
                                  {"QcosFactoryString scalar", "QcosFactoryString scalar", SeverityClassName}),
        [](std::span<qxArray const* const> inputs, int) {
            auto identity = std::make_shared<AttributeIdentity>(inputs[0]->getString(), inputs[1]->getString(),
                                                                fromSeverityQxArray(*inputs[2]));
            qcos::factory::basic::BindingRegistry::announceForConstructor(identity, AttributeIdentityClassName);
            return detail::single(matrix::to_qorvex(qcos::factory::full::acquireReference(identity)));
        });
    addMethod(std::move(constructor));

    addProperty(qcos::QcosProperty::withGetter(
        "ID", "any", [](auto const& object) { return qxArray::createString(identityOf(object)->getID()); }));
    addProperty(qcos::QcosProperty::withGetter(
        "Name", "any", [](auto const& object) { return qxArray::createString(identityOf(object)->getName()); }));
    addProperty(qcos::QcosProperty::withGetter("Severity", SeverityClassName, [](auto const& object) {
        return toSeverityQxArray(identityOf(object)->getSeverity());
    }));
}

}  // namespace dependency::services
