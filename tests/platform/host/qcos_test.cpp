#include "platform/host/Qcos.hpp"
#include "support/HostCalls.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <atomic>

namespace {

using qcos::COSInterfacePtr;
using qcos::HostError;

using depattr_test::callMethod;
using depattr_test::hostErrorIdentifier;
using depattr_test::thrown;

std::vector<qxArrayPtr> outputs(qxArrayPtr value) {
    std::vector<qxArrayPtr> result;
    result.push_back(std::move(value));
    return result;
}

// A native object that counts its destructions.
class Probe : public dependency::services::Shareable {
public:
    explicit Probe(std::atomic<int>& destroyed) : Shareable("test.qcos.Probe"), destroyed_(destroyed) {}
    ~Probe() override { ++destroyed_; }
    int value = 42;

private:
    std::atomic<int>& destroyed_;
};

class OtherNative : public dependency::services::Shareable {
public:
    OtherNative() : Shareable("test.qcos.Other") {}
};

// A script base class "test.qcos.Shape" with methods "describe" (overridden
// below) and "kind" (inherited), and a subclass whose superclass is named
// before being looked up.
void defineShapes() {
    static bool const defined = [] {
        qcos::ScriptClassBuilder("test.qcos.Circle")
            .superclass("test.qcos.Shape")  // registered after this class
            .method("describe", [](auto, int) { return outputs(matrix::to_qorvex(std::u16string_view(u"circle"))); })
            .define();
        qcos::ScriptClassBuilder("test.qcos.Shape")
            .method("describe", [](auto, int) { return outputs(matrix::to_qorvex(std::u16string_view(u"shape"))); })
            .method("kind", [](auto, int) { return outputs(matrix::to_qorvex(std::u16string_view(u"any shape"))); })
            .method(
                "secret", [](auto, int) { return outputs(qxArray::createEmpty()); }, qcos::Access::Private)
            .property("Sides", matrix::to_qorvex(0.0))
            .constantProperty("Unit", matrix::to_qorvex(std::u16string_view(u"cm")))
            .define();
        return true;
    }();
    (void)defined;
}

TEST(Qcos, HeterogeneousArrayOfBaseAndSubclassDispatchesToMostDerived) {
    defineShapes();
    auto const shape = qcos::omCreateObject("test.qcos.Shape");
    auto const circle = qcos::omCreateObject("test.qcos.Circle");
    EXPECT_TRUE(qcos::omIsA("test.qcos.Circle", "test.qcos.Shape"));
    EXPECT_FALSE(qcos::omIsA("test.qcos.Shape", "test.qcos.Circle"));

    auto row = qcos::omCreateQCOSMatrix(1, 2, "test.qcos.Shape");
    qcos::omSetArrayElement(*row, 0, shape);
    qcos::omSetArrayElement(*row, 1, circle);
    qcos::omSetClassOfHeterogeneousArray(*row, "test.qcos.Shape");
    EXPECT_TRUE(row->isHeterogeneous());
    EXPECT_EQ(row->getClassName(), "test.qcos.Shape");
    EXPECT_NO_THROW(computils::qcos::validateType(*row, "test.qcos.Shape"));
    EXPECT_EQ(hostErrorIdentifier([&] { computils::qcos::validateType(*row, "test.qcos.Circle"); }),
              "qcos:type:wrongClass");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omSetClassOfHeterogeneousArray(*row, "test.qcos.Circle"); }),
              "qcos:array:wrongElementClass");

    // A circle array only takes circles.
    auto circles = qcos::omCreateQCOSMatrix(1, 1, "test.qcos.Circle");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omSetArrayElement(*circles, 0, shape); }),
              "qcos:array:wrongElementClass");

    // Dispatch goes by each element's own class, and falls back to the base.
    std::vector<std::u16string> described;
    for (std::size_t i = 0; i < row->getNumberOfElements(); ++i) {
        auto const element = qcos::omCreateQCOSScalar(qcos::omGetArrayElement(*row, i));
        described.push_back(callMethod("describe", {element.get()})->getString());
        EXPECT_EQ(callMethod("kind", {element.get()})->getString(), u"any shape");
    }
    EXPECT_EQ(described, (std::vector<std::u16string>{u"shape", u"circle"}));

    // Stored properties start at the inherited default; constants read through the class.
    EXPECT_EQ(qcos::omGetProperty(*circle, "Sides")->getDouble(0), 0.0);
    qcos::omSetProperty(*circle, "Sides", matrix::to_qorvex(1.0));
    EXPECT_EQ(qcos::omGetProperty(*circle, "Sides")->getDouble(0), 1.0);
    EXPECT_EQ(qcos::omGetProperty(*shape, "Sides")->getDouble(0), 0.0);
    EXPECT_EQ(qcos::omGetConstantProperty("test.qcos.Circle", "Unit")->getString(), u"cm");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omSetProperty(*circle, "Unit", matrix::to_qorvex(1.0)); }),
              "qcos:property:readOnly");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omGetProperty(*circle, "Radius"); }), "qcos:property:undefined");
}

TEST(Qcos, FailedCallsKeepTheirErrorForTheCaller) {
    defineShapes();
    auto const circle = qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.Circle"));
    qxArray const* inputs[] = {circle.get()};
    qxArrayPtr out[1];

    EXPECT_FALSE(qcos::omCallMethod(qcos::COSGetPublicClient(), "analyze", 1, out, 1, inputs));
    auto const undefined =
        thrown<HostError>([] { computils::qcos::throwErrorCallingQorvexException("Shape.analyze"); });
    ASSERT_TRUE(undefined);
    EXPECT_EQ(undefined->identifier(), "qcos:method:undefined");
    EXPECT_EQ(undefined->context(), "Shape.analyze");
    EXPECT_NE(std::string(undefined->what()).find("test.qcos.Circle"), std::string::npos);

    // Private methods are closed to the public client only.
    EXPECT_FALSE(qcos::omCallMethod(qcos::COSGetPublicClient(), "secret", 1, out, 1, inputs));
    EXPECT_EQ(hostErrorIdentifier([] { computils::qcos::throwErrorCallingQorvexException("x"); }),
              "qcos:method:noAccess");
    EXPECT_TRUE(qcos::omCallMethod(qcos::COSGetInternalClient(), "secret", 1, out, 1, inputs));
    EXPECT_TRUE(out[0]->isEmpty());

    // Asking for more outputs than a method gives.
    qxArrayPtr two[2];
    EXPECT_FALSE(qcos::omCallMethod(qcos::COSGetPublicClient(), "describe", 2, two, 1, inputs));
    EXPECT_EQ(hostErrorIdentifier([] { computils::qcos::throwErrorCallingQorvexException("x"); }),
              "qcos:method:tooManyOutputs");

    // A native exception thrown by a method is reported, with its text, as a host error.
    qcos::ScriptClassBuilder("test.qcos.Failing")
        .method("run", [](auto, int) -> std::vector<qxArrayPtr> { throw std::out_of_range("index 7"); })
        .define();
    auto const failing = qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.Failing"));
    auto const native = thrown<HostError>([&] { callMethod("run", {failing.get()}); });
    ASSERT_TRUE(native);
    EXPECT_EQ(native->identifier(), "qcos:call:nativeError");
    EXPECT_STREQ(native->what(), "index 7");
}

TEST(Qcos, TypedSignaturesChooseAnOverloadAndRejectWrongTypes) {
    auto info = std::make_shared<qcos::COSClassInfo>("test.qcos.typed.Counter");
    qcos::QcosMethod add("add");
    add.addSignature(qcos::createSignatureImpl({"double scalar"}, {"test.qcos.typed.Counter", "double scalar"}),
                     [](auto inputs, int) { return outputs(matrix::to_qorvex(inputs[1]->getDouble(0) + 1)); });
    add.addSignature(
        qcos::createSignatureImpl({"double scalar"}, {"test.qcos.typed.Counter", "QcosFactoryString scalar"}),
        [](auto inputs, int) {
            return outputs(matrix::to_qorvex(static_cast<double>(inputs[1]->getString().size())));
        });
    add.addSignature(qcos::createSignatureImpl({"logical scalar"}, {"test.qcos.typed.Counter", "double", "double"}),
                     [](auto, int) { return outputs(matrix::to_qorvex(3.0)); });  // breaks its signature
    info->addMethod(std::move(add));
    qcos::QcosMethod constructor("Counter", qcos::MethodAttributes{true, qcos::Access::Public});
    constructor.addSignature(qcos::createSignatureImpl({"test.qcos.typed.Counter"}, {"double scalar"}), [](auto, int) {
        return outputs(qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.typed.Counter")));
    });
    info->addMethod(std::move(constructor));
    EXPECT_THROW(qcos::QcosMethod("m").addSignature(qcos::createUntypedSignature(), {}), std::invalid_argument);
    qcos::omGetInnerNamespace(qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "qcos"), "typed").addClass(info);
    EXPECT_EQ(hostErrorIdentifier([&] { info->addMethod(qcos::QcosMethod("late")); }), "qcos:class:frozen");

    auto const counter = qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.typed.Counter"));
    auto const number = matrix::to_qorvex(4.0);
    auto const text = matrix::to_qorvex(std::u16string_view(u"abc"));
    auto const flag = matrix::to_qorvex(true);
    EXPECT_EQ(callMethod("add", {counter.get(), number.get()})->getDouble(0), 5.0);
    EXPECT_EQ(callMethod("add", {counter.get(), text.get()})->getDouble(0), 3.0);
    EXPECT_EQ(hostErrorIdentifier([&] {
                  callMethod("add", {counter.get(), flag.get()});
              }),
              "qcos:method:wrongArgumentType");
    EXPECT_EQ(hostErrorIdentifier([&] { callMethod("add", {counter.get()}); }), "qcos:method:wrongArgumentCount");
    EXPECT_EQ(hostErrorIdentifier([&] {
                  callMethod("add", {counter.get(), number.get(), number.get()});
              }),
              "qcos:method:wrongOutputType");

    // The constructor is the static method named after the class.
    qxArrayPtr made[1];
    qxArray const* constructorInputs[] = {number.get()};
    ASSERT_TRUE(qcos::omCallStaticMethod(qcos::COSGetPublicClient(), "test.qcos.typed.Counter", "Counter", 1, made, 1,
                                         constructorInputs));
    EXPECT_EQ(made[0]->getClassName(), "test.qcos.typed.Counter");
    EXPECT_FALSE(qcos::omCallStaticMethod(qcos::COSGetPublicClient(), "test.qcos.typed.Counter", "add", 1, made, 1,
                                          constructorInputs));
    EXPECT_EQ(hostErrorIdentifier([] { computils::qcos::throwErrorCallingQorvexException("x"); }),
              "qcos:method:undefined");
}

TEST(Qcos, NamespacesRejectDuplicatesAndForeignClasses) {
    auto& space = qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "ns");
    EXPECT_EQ(&space, &qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "ns"));
    EXPECT_EQ(space.getQualifiedName(), "test.ns");
    space.addClass(std::make_shared<qcos::COSClassInfo>("test.ns.Once"));
    EXPECT_EQ(hostErrorIdentifier([&] { space.addClass(std::make_shared<qcos::COSClassInfo>("test.ns.Once")); }),
              "qcos:namespace:duplicateClass");
    EXPECT_EQ(
        hostErrorIdentifier([&] { space.addClass(std::make_shared<qcos::COSClassInfo>("test.other.Elsewhere")); }),
        "qcos:namespace:wrongNamespace");
    EXPECT_EQ(hostErrorIdentifier([&] { space.addClass(std::make_shared<qcos::COSClassInfo>("test.ns.inner.Deep")); }),
              "qcos:namespace:wrongNamespace");
    EXPECT_EQ(hostErrorIdentifier([] { qcos::omGetNamespace("not valid"); }), "qcos:namespace:invalidName");
    EXPECT_EQ(qcos::omFindClass("test.ns.Once")->getName(), "Once");
    EXPECT_EQ(hostErrorIdentifier([] { qcos::omCreateObject("test.ns.Missing"); }), "qcos:class:undefined");

    // Class files at the top of a folder define classes outside every namespace.
    qcos::ScriptClassBuilder("QcosTestTopLevel").superclass("handle").define();
    EXPECT_EQ(qcos::omFindClass("QcosTestTopLevel")->getName(), "QcosTestTopLevel");
    EXPECT_TRUE(qcos::omIsA("QcosTestTopLevel", "handle"));
    EXPECT_EQ(hostErrorIdentifier([] { qcos::ScriptClassBuilder("QcosTestTopLevel").define(); }),
              "qcos:namespace:duplicateClass");
    EXPECT_EQ(hostErrorIdentifier([] { qcos::ScriptClassBuilder("test..Gap").define(); }), "qcos:class:invalidName");
}

TEST(Qcos, SuperclassImplementationsAndValueCopies) {
    defineShapes();
    auto const circle = qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.Circle"));
    qxArray const* inputs[] = {circle.get()};
    qxArrayPtr out[1];
    // The superclass's own implementation, not the override of the object's class.
    ASSERT_TRUE(
        qcos::omCallMethodOfClass(qcos::COSGetPublicClient(), "test.qcos.Shape", "describe", 1, out, 1, inputs));
    EXPECT_EQ(out[0]->getString(), u"shape");
    auto const shape = qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.Shape"));
    qxArray const* shapeInputs[] = {shape.get()};
    EXPECT_FALSE(
        qcos::omCallMethodOfClass(qcos::COSGetPublicClient(), "test.qcos.Circle", "describe", 1, out, 1, shapeInputs));
    EXPECT_EQ(hostErrorIdentifier([] { computils::qcos::throwErrorCallingQorvexException("x"); }),
              "qcos:method:notSubclass");

    // A copied object starts with the original's values and then goes its own way.
    auto const original = qcos::omCreateObject("test.qcos.Circle");
    qcos::omSetProperty(*original, "Sides", matrix::to_qorvex(1.0));
    auto const copy = qcos::omCopyObject(*original);
    qcos::omSetPropertyShared(*copy, "Sides", qxArray::share(matrix::to_qorvex(2.0)));
    EXPECT_EQ(qcos::omGetPropertyShared(*original, "Sides")->getDouble(0), 1.0);
    EXPECT_EQ(qcos::omGetPropertyShared(*copy, "Sides")->getDouble(0), 2.0);
    EXPECT_EQ(qcos::omGetConstantPropertyShared("test.qcos.Circle", "Unit")->getString(), u"cm");
}

TEST(Qcos, ErrorsRethrownForACallerKeepTheirHostLanguageStack) {
    qcos::ScriptClassBuilder("test.qcos.Thrower")
        .method("run",
                [](auto, int) -> std::vector<qxArrayPtr> {
                    HostError error("user:failed", "it failed");
                    error.addFrame({"Thrower.qx", "Thrower.run", 12, 5});
                    error.addFrame({"caller.qx", "caller", 3, 1});
                    throw error;
                })
        .define();
    auto const thrower = qcos::omCreateQCOSScalar(qcos::omCreateObject("test.qcos.Thrower"));
    auto const error = thrown<HostError>([&] { callMethod("run", {thrower.get()}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->identifier(), "user:failed");
    EXPECT_EQ(error->context(), "run");
    ASSERT_EQ(error->stack().size(), 2u);
    EXPECT_EQ(error->location(), "Thrower.qx:12:5");
    EXPECT_EQ(error->stack()[1].function, "caller");
}

TEST(Qcos, NativeObjectLivesExactlyAsLongAsItsLastOwner) {
    std::atomic<int> destroyed{0};
    auto native = std::make_shared<Probe>(destroyed);
    Probe const* const address = native.get();
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::factory::full::acquireReference(native); }), "qcos:binding:notAnnounced");

    qcos::factory::basic::BindingRegistry::announce(native, qcos::internal::makeInterned("test.qcos.Probe"));
    EXPECT_TRUE(native->isPublished());
    COSInterfacePtr object = qcos::factory::full::acquireReference(native);
    EXPECT_EQ(object->getClassName(), "test.qcos.Probe");

    // Two host arrays and a clone share the one host object.
    auto scalar = matrix::to_qorvex(object);
    auto copy = scalar->clone();
    EXPECT_EQ(copy->getObject(0), object);
    EXPECT_EQ(object->referenceCount(), 3u);
    EXPECT_EQ(matrix::from_qorvex<Probe>(*copy), native);
    EXPECT_EQ(hostErrorIdentifier([&] { matrix::from_qorvex<OtherNative>(*copy); }), "qcos:binding:wrongNativeClass");

    native.reset();
    object.reset();
    scalar.reset();
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(qcos::factory::basic::BindingRegistry::announcedClassOf(address), "test.qcos.Probe");
    copy.reset();  // the last host reference
    EXPECT_EQ(destroyed, 1);
    EXPECT_FALSE(qcos::factory::basic::BindingRegistry::announcedClassOf(address).has_value());
}

TEST(Qcos, BindingRegistryAnnouncementsAndSelfChecks) {
    std::atomic<int> destroyed{0};
    auto native = std::make_shared<Probe>(destroyed);
    qcos::factory::basic::BindingRegistry::announceForConstructor(native, "test.qcos.Probe");
    qcos::factory::basic::BindingRegistry::announceForConstructor(native, "test.qcos.Renamed");
    EXPECT_EQ(qcos::factory::basic::BindingRegistry::announcedClassOf(native.get()), "test.qcos.Probe");
    qcos::factory::basic::BindingRegistry::announce(native, "test.qcos.Renamed");
    EXPECT_EQ(qcos::factory::basic::BindingRegistry::announcedClassOf(native.get()), "test.qcos.Renamed");
    EXPECT_EQ(qcos::internal::makeInterned("x.Y"), qcos::internal::makeInterned(std::string("x.") + "Y"));

    // Script objects wrap nothing native: the self check rejects them.
    defineShapes();
    auto const shape = qcos::omCreateObject("test.qcos.Shape");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::factory::impl::validateSelfPointer(*shape); }),
              "qcos:binding:invalidSelf");
    EXPECT_EQ(hostErrorIdentifier([] { qcos::factory::basic::BindingRegistry::announce(nullptr, "x.Y"); }),
              "qcos:binding:nullObject");
    native.reset();
    EXPECT_EQ(destroyed, 1);
}

TEST(Qcos, EnumerationMembersAndObjectArrayAccess) {
    enum class Level { Low = 0, High = 5 };
    auto info = std::make_shared<qcos::factory::EnumClassInfo<Level>>("test.qcos.Level");
    info->addMember("Low", Level::Low);
    info->addMember("High", Level::High);
    qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "qcos").addClass(info);

    auto const high = qcos::omGetConstantProperty("test.qcos.Level", "High");
    EXPECT_EQ(qcos::cosiGetArrayElement(*high, 0)->getEnumerationValue(), 5);
    EXPECT_EQ(hostErrorIdentifier([] { qcos::omCreateEnumeration("test.qcos.Level", 3); }),
              "qcos:enumeration:noSuchMember");
    EXPECT_EQ(hostErrorIdentifier([] { qcos::omCreateObject("test.qcos.Level"); }), "qcos:object:notConstructible");

    auto const slots = qcos::omCreateQCOSMatrix(2, 1, "test.qcos.Level");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omGetArrayElement(*slots, 1); }), "qcos:array:emptySlot");
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omGetArrayElement(*slots, 2); }), "qx:array:indexOutOfRange");
    auto const numbers = qxArray::createDouble({1, 1});
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::omGetArrayElement(*numbers, 0); }), "qcos:array:notObjectArray");
    EXPECT_EQ(hostErrorIdentifier([&] { computils::qcos::validateType(*numbers, "test.qcos.Level"); }),
              "qcos:type:wrongClass");
}

}  // namespace
