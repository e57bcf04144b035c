#include "services/AnalyzerRegistry.hpp"

#include "services/HostClassNames.hpp"
#include "services/HostExecution.hpp"
#include "services/QorvexAnalyzer.hpp"

#include <boost/container/throw_exception.hpp>

namespace dependency::attribute {

using AnalyzerList = std::vector<std::shared_ptr<AttributeAnalyzer>>;

namespace {

// The registry module's name, under which its work is queued.
constexpr char const* RegistryLabel = "registry";

// The test compares the class's own name only, as the binding registers it in
// its namespace.
std::shared_ptr<AttributeAnalyzer> fromAnalyzerObject(qcos::COSInterfacePtr const& object) {
    if (object->getClass()->getName() == "AttributeAnalyzer") {
        auto const scalar = qcos::omCreateQCOSScalar(object);
        return matrix::from_qorvex<AttributeAnalyzer>(*scalar);
    }
    return std::make_shared<QorvexAnalyzer>(object);
}

AnalyzerList convertElements(qxArray const& array) {
    AnalyzerList analyzers;
    analyzers.reserve(array.getNumberOfElements());
    for (std::size_t index = 0; index < array.getNumberOfElements(); ++index) {
        analyzers.push_back(fromAnalyzerObject(qcos::omGetArrayElement(array, index)));
    }
    return analyzers;
}

}  // namespace

AnalyzerList getRegisteredAnalyzers(std::shared_ptr<qvm::QVM> const& vm) {
    auto expression = services::detail::runOnCommandThread<qxArrayPtr>(
        vm, [] { return qxArray::createString(RegistryExpression); }, RegistryLabel);
    std::vector<qxArrayPtr> arguments;
    arguments.push_back(std::move(expression));
    auto outputs =
        vm->feval("eval", std::move(arguments), 1, vm->createRequestID(), services::detail::nullSinkRunOptions()).get();
    if (outputs.empty() || !outputs.front()) {
        boost::container::throw_out_of_range("vector::at out of range");
    }
    return fromAttributeAnalyzerQxArray(*outputs.front(), vm);
}

AnalyzerList fromAttributeAnalyzerQxArray(qxArray const& array, std::shared_ptr<qvm::QVM> const& vm) {
    return services::detail::runOnCommandThread<AnalyzerList>(
        vm, [&array] { return convertElements(array); }, RegistryLabel);
}

std::shared_ptr<AttributeAnalyzer> fromAttributeAnalyzerScalarQxArray(qxArray const& array,
                                                                      std::shared_ptr<qvm::QVM> const& vm) {
    return services::detail::runOnCommandThread<std::shared_ptr<AttributeAnalyzer>>(
        vm, [&array] { return fromAnalyzerObject(qcos::omGetArrayElement(array, 0)); }, RegistryLabel);
}

qxArrayPtr toAttributeAnalyzerQxArray(std::shared_ptr<AttributeAnalyzer> const& analyzer) {
    std::string const className =
        analyzer ? analyzer->getFullyQualifiedQcosTypeName() : std::string(services::AttributeAnalyzerClassName);
    if (className.empty()) {
        return qxArray::createEmpty();
    }
    qcos::factory::basic::BindingRegistry::announce(analyzer, qcos::internal::makeInterned(className));
    return matrix::to_qorvex(qcos::factory::full::acquireReference(analyzer));
}

}  // namespace dependency::attribute
