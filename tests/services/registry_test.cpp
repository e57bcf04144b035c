// Analyzers from the host: the registry, host arrays of analyzers, and native
// analyzers handed to the host and back.

#include "HostTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"
#include "services/AnalyzerRegistry.hpp"
#include "services/QorvexAnalyzer.hpp"

namespace {

using namespace depattr_test;
using dependency::attribute::AttributeAnalyzer;
using dependency::attribute::QorvexAnalyzer;

class Registry : public HostTest {
protected:
    std::shared_ptr<qvm::QVM> vm = qvm::Factory::getCurrentLocalQVM();
};

qcos::COSInterfacePtr gatewayObject(std::string_view gateway) {
    return qcos::omGetArrayElement(*feval(gateway).front(), 0);
}

qcos::COSInterfacePtr scriptObject() {
    return defineAnalyzer("Quiet", [](auto, int) { return one(emptyAttributes()); });
}

TEST_F(Registry, ReadsWhatTheHostRegisteredInElementOrder) {
    EXPECT_TRUE(dependency::attribute::getRegisteredAnalyzers(vm).empty());

    auto const native = gatewayObject("createMissingFileAnalyzer");
    auto const script = scriptObject();
    qcos::registry::addAttributeAnalyzer(native);
    qcos::registry::addAttributeAnalyzer(script);
    qcos::registry::addAttributeAnalyzer(native);
    auto const analyzers = dependency::attribute::getRegisteredAnalyzers(vm);
    ASSERT_EQ(analyzers.size(), 3u);
    // The native analyzer is unwrapped to itself, twice the same object.
    auto const wrapped = matrix::from_qorvex<AttributeAnalyzer>(*qcos::omCreateQCOSScalar(native));
    EXPECT_EQ(analyzers[0], wrapped);
    EXPECT_EQ(analyzers[2], wrapped);
    auto const adapter = std::dynamic_pointer_cast<QorvexAnalyzer>(analyzers[1]);
    ASSERT_TRUE(adapter);
    EXPECT_EQ(adapter->getAnalyzerObject(), script);
}

TEST_F(Registry, ArraysOfAnyShapeConvertInColumnMajorOrder) {
    std::vector<qcos::COSInterfacePtr> objects;
    for (int i = 0; i < 6; ++i) {
        objects.push_back(i % 2 == 0 ? gatewayObject("createDerivedFileAnalyzer") : scriptObject());
    }
    auto const array = analyzerRow(objects, 2);
    ASSERT_EQ(array->getDimensions(), (qxArray::Dimensions{2, 3}));
    auto const analyzers = dependency::attribute::fromAttributeAnalyzerQxArray(*array, vm);
    ASSERT_EQ(analyzers.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) {
        if (auto adapter = std::dynamic_pointer_cast<QorvexAnalyzer>(analyzers[i])) {
            EXPECT_EQ(adapter->getAnalyzerObject(), objects[i]) << i;
        } else {
            EXPECT_EQ(analyzers[i], matrix::from_qorvex<AttributeAnalyzer>(*qcos::omCreateQCOSScalar(objects[i]))) << i;
        }
    }
    // The scalar form reads element 0 and ignores the rest.
    EXPECT_EQ(dependency::attribute::fromAttributeAnalyzerScalarQxArray(*array, vm), analyzers[0]);
    auto const empty = analyzerRow({});
    EXPECT_TRUE(dependency::attribute::fromAttributeAnalyzerQxArray(*empty, vm).empty());
    expectHostError([&] { dependency::attribute::fromAttributeAnalyzerScalarQxArray(*empty, vm); },
                    "qx:array:indexOutOfRange");
}

TEST_F(Registry, OnlyTheClassesOwnNameDecidesWhatIsNative) {
    // A host class whose own name is AttributeAnalyzer is taken for the
    // binding, whatever its namespace: it must then wrap a native analyzer.
    auto const lookalike = uniqueClassName("x") + ".AttributeAnalyzer";
    qcos::ScriptClassBuilder(lookalike).superclass("dependencies.internal.attribute.AttributeAnalyzer").define();
    auto const array = qcos::omCreateQCOSScalar(qcos::omCreateObject(lookalike));
    expectHostError([&] { dependency::attribute::fromAttributeAnalyzerScalarQxArray(*array, vm); },
                    "qcos:binding:invalidSelf");
    // An element that is no object at all fails in the host's element access.
    auto const number = matrix::to_qorvex(2.0);
    expectHostError([&] { dependency::attribute::fromAttributeAnalyzerQxArray(*number, vm); },
                    "qcos:array:notObjectArray");
}

TEST_F(Registry, WithoutACommandDistributorEveryFunctionFails) {
    auto const none = qvm::QVM::create(false);
    auto const array = analyzerRow({scriptObject()});
    auto const expectNoDistributor = [](auto&& action) {
        try {
            action();
            ADD_FAILURE() << "no error";
        } catch (cmddistributor::RuntimeException const& error) {
            EXPECT_EQ(error.getMessage(), "No CmdDistributor available");
        }
    };
    expectNoDistributor([&] { dependency::attribute::getRegisteredAnalyzers(none); });
    expectNoDistributor([&] { dependency::attribute::fromAttributeAnalyzerQxArray(*array, none); });
    expectNoDistributor([&] { dependency::attribute::fromAttributeAnalyzerScalarQxArray(*array, none); });
}

TEST_F(Registry, AnalyzersHandedToTheHostStayAliveAndComeBackUnchanged) {
    std::weak_ptr<AttributeAnalyzer> watched;
    qxArrayPtr value;
    {
        auto analyzer = dependency::attribute::createInvalidFormatAnalyzer();
        watched = analyzer;
        value = dependency::attribute::toAttributeAnalyzerQxArray(analyzer);
    }
    ASSERT_FALSE(watched.expired());
    EXPECT_EQ(value->getClassName(), "dependencies.internal.attribute.AttributeAnalyzer");
    EXPECT_EQ(dependency::attribute::fromAttributeAnalyzerScalarQxArray(*value, vm), watched.lock());
    value.reset();
    EXPECT_TRUE(watched.expired());
}

}  // namespace
