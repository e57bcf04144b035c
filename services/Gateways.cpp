#include "services/Gateways.hpp"

#include "attribute/Attribute.hpp"
#include "attribute/analyzers/Registry.hpp"
#include "platform/host/HostFunctions.hpp"
#include "services/AnalyzerRegistry.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostExecution.hpp"
#include "services/HostObjects.hpp"

namespace {

using dependency::attribute::AttributeAnalyzer;

// The analyzer gateways differ only in the analyzer they make.
void analyzerGateway(dependency::attribute::AnalyzerDescription const& description, int nlhs, qxArrayPtr plhs[],
                     int nrhs) {
    matrix::detail::checkArgumentCounts(nlhs, 1, nrhs, 0, 0);
    auto analyzer = description.create();
    auto value = dependency::attribute::toAttributeAnalyzerQxArray(analyzer);
    plhs[0] = std::move(value);
    // The host value now keeps the analyzer alive.
    analyzer.reset();
}

}  // namespace

// One gateway per built-in analyzer, named as its description says (create<Stem>Analyzer).
#define DEPATTR_ANALYZER_GATEWAY(Stem)                                                              \
    void create##Stem##Analyzer(int nlhs, qxArrayPtr plhs[], int nrhs, qxArray const* /*prhs*/[]) { \
        analyzerGateway(dependency::attribute::Stem##Description(), nlhs, plhs, nrhs);              \
    }

DEPATTR_BUILT_IN_ANALYZERS(DEPATTR_ANALYZER_GATEWAY)

#undef DEPATTR_ANALYZER_GATEWAY

void createAttribute(int nlhs, qxArrayPtr plhs[], int nrhs, qxArray const* prhs[]) {
    using namespace dependency;
    matrix::detail::checkArgumentCounts(nlhs, 1, nrhs, 1, 2);
    computils::qcos::validateType(*prhs[0], services::AttributeIdentityClassName);
    auto const identity = services::detail::nativeOf<attribute::AttributeIdentity>(*prhs[0]);
    std::function<void()> fix;
    if (nrhs == 2) {
        if (prhs[1]->classID() != qxClassID::FunctionHandle) {
            throw qcos::HostError("depattr:createAttribute:notFunctionHandle",
                                  "The fix of an attribute must be a function handle, got an array of class '" +
                                      prhs[1]->getClassName() + "'.");
        }
        // Host code runs on the command thread: a fix applied from any other
        // thread is handed to it.
        fix = [handle = prhs[1]->getFunctionHandle()] {
            services::detail::runOnCommandThread<void>(
                qvm::Factory::getCurrentLocalQVM(), [handle] { (void)handle->call({}, 0); }, "Attribute.applyFix");
        };
    }
    auto const attribute = std::make_shared<attribute::Attribute>(identity, std::move(fix));
    plhs[0] = matrix::to_qorvex(services::detail::toHostObject(attribute));
}
