#include "services/GraphAttributesQCOS.hpp"

#include "attribute/GraphAttributes.hpp"
#include "platform/host/HostClasses.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostObjects.hpp"
#include "services/SeverityQCOS.hpp"

namespace dependency::services {

using attribute::AttributeIdentity;
using attribute::GraphAttributes;

namespace {

std::string vectorOf(char const* className) {
    return std::string(className) + " vector";
}

std::shared_ptr<GraphAttributes> resultOf(std::span<qxArray const* const> inputs) {
    return detail::nativeOf<GraphAttributes>(*inputs[0]);
}

}  // namespace

GraphAttributesQCOS::GraphAttributesQCOS() : QcosFactoryClassInfo(GraphAttributesClassName) {
    qcos::QcosMethod getAttributes("getAttributes");
    getAttributes.addSignature(
        qcos::createSignatureImpl({vectorOf(AttributeClassName)}, {GraphAttributesClassName, NodeClassName}),
        [](std::span<qxArray const* const> inputs, int) {
            auto const attributes = resultOf(inputs)->getAttributes(fromScalarNodeQxArray(*inputs[1]));
            return detail::single(detail::toHostRow(attributes, AttributeClassName));
        });
    getAttributes.addSignature(qcos::createSignatureImpl({vectorOf(AttributeClassName)},
                                                         {GraphAttributesClassName, NodeClassName, SeverityClassName}),
                               [](std::span<qxArray const* const> inputs, int) {
                                   auto const attributes = resultOf(inputs)->getAttributes(
                                       fromScalarNodeQxArray(*inputs[1]), fromSeverityQxArray(*inputs[2]));
                                   return detail::single(detail::toHostRow(attributes, AttributeClassName));
                               });
    addMethod(std::move(getAttributes));

    qcos::QcosMethod getNodesWith("getNodesWith");
    getNodesWith.addSignature(
        qcos::createSignatureImpl({vectorOf(NodeClassName)}, {GraphAttributesClassName, AttributeIdentityClassName}),
        [](std::span<qxArray const* const> inputs, int) {
            auto const identity = detail::nativeOf<AttributeIdentity>(*inputs[1]);
            return detail::single(toNodeVectorQxArray(resultOf(inputs)->getNodesWith(*identity)));
        });
    addMethod(std::move(getNodesWith));

    qcos::QcosMethod getAllProblemIdentities("getAllProblemIdentities");
    getAllProblemIdentities.addSignature(
        qcos::createSignatureImpl({vectorOf(AttributeIdentityClassName)}, {GraphAttributesClassName}),
        [](std::span<qxArray const* const> inputs, int) {
            return detail::single(
                detail::toHostRow(resultOf(inputs)->getAllProblemIdentities(), AttributeIdentityClassName));
        });
    addMethod(std::move(getAllProblemIdentities));
}

}  // namespace dependency::services
