#include "platform/host/Qcos.hpp"
#include "support/HostCalls.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

namespace {

using qcos::COSInterfacePtr;
using qcos::HostError;
using Registry = qcos::factory::basic::BindingRegistry;

using depattr_test::callMethod;
using depattr_test::hostErrorIdentifier;
using depattr_test::thrown;

std::vector<qxArrayPtr> outputs(qxArrayPtr value) {
    std::vector<qxArrayPtr> result;
    result.push_back(std::move(value));
    return result;
}

qxArrayPtr scalarOf(std::string_view className) {
    return qcos::omCreateQCOSScalar(qcos::omCreateObject(className));
}

// The identifier of the error a failed host call kept for its caller, or "succeeded".
std::string keptError(bool succeeded) {
    return succeeded ? "succeeded"
                     : hostErrorIdentifier([] { computils::qcos::throwErrorCallingQorvexException("x"); });
}

// Expects each call to throw the host error paired with it.
void expectErrors(std::vector<std::pair<std::function<void()>, std::string>> const& cases) {
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(hostErrorIdentifier(cases[i].first), cases[i].second) << "case " << i;
    }
}

// A native object that counts its destructions.
class Probe : public dependency::services::Shareable {
public:
    explicit Probe(std::atomic<int>& destroyed) : Shareable("test.qcos.Probe"), destroyed_(destroyed) {}
    ~Probe() override { ++destroyed_; }

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
    [[maybe_unused]] static bool const defined = [] {
        auto const says = [](std::u16string_view text) {
            return [text](auto, int) { return outputs(matrix::to_qorvex(text)); };
        };
        qcos::ScriptClassBuilder("test.qcos.Circle")
            .superclass("test.qcos.Shape")  // registered after this class
            .method("describe", says(u"circle"))
            .define();
        qcos::ScriptClassBuilder("test.qcos.Shape")
            .method("describe", says(u"shape"))
            .method("kind", says(u"any shape"))
            .method(
                "secret", [](auto, int) { return outputs(qxArray::createEmpty()); }, qcos::Access::Private)
            .property("Sides", matrix::to_qorvex(0.0))
            .constantProperty("Unit", matrix::to_qorvex(std::u16string_view(u"cm")))
            .define();
        return true;
    }();
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

    auto circles = qcos::omCreateQCOSMatrix(1, 1, "test.qcos.Circle");  // takes circles only
    expectErrors({
        {[&] { computils::qcos::validateType(*row, "test.qcos.Circle"); }, "qcos:type:wrongClass"},
        {[&] { qcos::omSetClassOfHeterogeneousArray(*row, "test.qcos.Circle"); }, "qcos:array:wrongElementClass"},
        {[&] { qcos::omSetArrayElement(*circles, 0, shape); }, "qcos:array:wrongElementClass"},
        {[&] { qcos::omSetProperty(*circle, "Unit", matrix::to_qorvex(1.0)); }, "qcos:property:readOnly"},
        {[&] { qcos::omGetProperty(*circle, "Radius"); }, "qcos:property:undefined"},
    });

    // A superclass's own implementation, not the override of the object's class.
    qxArrayPtr out[1];
    auto const describeAs = [&](std::string_view className, qxArrayPtr const& object) {
        qxArray const* inputs[] = {object.get()};
        return keptError(
            qcos::omCallMethodOfClass(qcos::COSGetPublicClient(), className, "describe", 1, out, 1, inputs));
    };
    ASSERT_EQ(describeAs("test.qcos.Shape", scalarOf("test.qcos.Circle")), "succeeded");
    EXPECT_EQ(out[0]->getString(), u"shape");
    EXPECT_EQ(describeAs("test.qcos.Circle", scalarOf("test.qcos.Shape")), "qcos:method:notSubclass");

    // A copied object starts with the original's values and then goes its own way.
    auto const copy = qcos::omCopyObject(*circle);
    qcos::omSetPropertyShared(*copy, "Sides", qxArray::share(matrix::to_qorvex(2.0)));
    EXPECT_EQ(qcos::omGetPropertyShared(*circle, "Sides")->getDouble(0), 1.0);
    EXPECT_EQ(qcos::omGetPropertyShared(*copy, "Sides")->getDouble(0), 2.0);
    EXPECT_EQ(qcos::omGetConstantPropertyShared("test.qcos.Circle", "Unit")->getString(), u"cm");
}

TEST(Qcos, FailedCallsKeepTheirErrorForTheCaller) {
    defineShapes();
    auto const circle = scalarOf("test.qcos.Circle");
    qxArray const* inputs[] = {circle.get()};
    qxArrayPtr out[2];
    EXPECT_FALSE(qcos::omCallMethod(qcos::COSGetPublicClient(), "analyze", 1, out, 1, inputs));
    auto const undefined =
        thrown<HostError>([] { computils::qcos::throwErrorCallingQorvexException("Shape.analyze"); });
    ASSERT_TRUE(undefined);
    EXPECT_EQ(undefined->identifier(), "qcos:method:undefined");
    EXPECT_EQ(undefined->context(), "Shape.analyze");
    EXPECT_NE(std::string(undefined->what()).find("test.qcos.Circle"), std::string::npos);

    // Private methods are closed to the public client only; no method gives more outputs than it has.
    auto const publicCall = [&](std::string_view method, int outputCount) {
        return keptError(qcos::omCallMethod(qcos::COSGetPublicClient(), method, outputCount, out, 1, inputs));
    };
    EXPECT_EQ(publicCall("secret", 1), "qcos:method:noAccess");
    EXPECT_TRUE(qcos::omCallMethod(qcos::COSGetInternalClient(), "secret", 1, out, 1, inputs));
    EXPECT_TRUE(out[0]->isEmpty());
    EXPECT_EQ(publicCall("describe", 2), "qcos:method:tooManyOutputs");

    // A native exception thrown by a method is reported, with its text, as a host error; a
    // host error rethrown for a caller keeps its host-language stack.
    qcos::ScriptClassBuilder("test.qcos.Failing")
        .method("run", [](auto, int) -> std::vector<qxArrayPtr> { throw std::out_of_range("index 7"); })
        .method("rethrow",
                [](auto, int) -> std::vector<qxArrayPtr> {
                    HostError error("user:failed", "it failed");
                    error.addFrame({"Thrower.qx", "Thrower.run", 12, 5});
                    error.addFrame({"caller.qx", "caller", 3, 1});
                    throw error;
                })
        .define();
    auto const failing = scalarOf("test.qcos.Failing");
    auto const native = thrown<HostError>([&] { callMethod("run", {failing.get()}); });
    ASSERT_TRUE(native);
    EXPECT_EQ(native->identifier(), "qcos:call:nativeError");
    EXPECT_STREQ(native->what(), "index 7");
    auto const error = thrown<HostError>([&] { callMethod("rethrow", {failing.get()}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->identifier(), "user:failed");
    EXPECT_EQ(error->context(), "rethrow");
    ASSERT_EQ(error->stack().size(), 2u);
    EXPECT_EQ(error->location(), "Thrower.qx:12:5");
    EXPECT_EQ(error->stack()[1].function, "caller");
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
    constructor.addSignature(qcos::createSignatureImpl({"test.qcos.typed.Counter"}, {"double scalar"}),
                             [](auto, int) { return outputs(scalarOf("test.qcos.typed.Counter")); });
    info->addMethod(std::move(constructor));
    EXPECT_THROW(qcos::QcosMethod("m").addSignature(qcos::createUntypedSignature(), {}), std::invalid_argument);
    qcos::omGetInnerNamespace(qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "qcos"), "typed").addClass(info);

    auto const counter = scalarOf("test.qcos.typed.Counter");
    auto const callAdd = [&](auto const&... arguments) {
        return callMethod("add", {counter.get(), arguments.get()...});
    };
    auto const number = matrix::to_qorvex(4.0);
    auto const flag = matrix::to_qorvex(true);
    EXPECT_EQ(callAdd(number)->getDouble(0), 5.0);
    EXPECT_EQ(callAdd(matrix::to_qorvex(std::u16string_view(u"abc")))->getDouble(0), 3.0);
    expectErrors({
        {[&] { info->addMethod(qcos::QcosMethod("late")); }, "qcos:class:frozen"},
        {[&] { callAdd(flag); }, "qcos:method:wrongArgumentType"},
        {[&] { callAdd(); }, "qcos:method:wrongArgumentCount"},
        {[&] { callAdd(number, number); }, "qcos:method:wrongOutputType"},
    });

    // The constructor is the static method named after the class.
    qxArrayPtr made[1];
    qxArray const* constructorInputs[] = {number.get()};
    auto const callStatic = [&](std::string_view method) {
        return keptError(qcos::omCallStaticMethod(qcos::COSGetPublicClient(), "test.qcos.typed.Counter", method, 1,
                                                  made, 1, constructorInputs));
    };
    ASSERT_EQ(callStatic("Counter"), "succeeded");
    EXPECT_EQ(made[0]->getClassName(), "test.qcos.typed.Counter");
    EXPECT_EQ(callStatic("add"), "qcos:method:undefined");
}

TEST(Qcos, NamespacesRejectDuplicatesAndForeignClasses) {
    auto& space = qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "ns");
    EXPECT_EQ(&space, &qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "ns"));
    EXPECT_EQ(space.getQualifiedName(), "test.ns");
    auto const addClass = [&](std::string name) { space.addClass(std::make_shared<qcos::COSClassInfo>(name)); };
    addClass("test.ns.Once");
    EXPECT_EQ(qcos::omFindClass("test.ns.Once")->getName(), "Once");

    // Class files at the top of a folder define classes outside every namespace.
    qcos::ScriptClassBuilder("QcosTestTopLevel").superclass("handle").define();
    EXPECT_EQ(qcos::omFindClass("QcosTestTopLevel")->getName(), "QcosTestTopLevel");
    EXPECT_TRUE(qcos::omIsA("QcosTestTopLevel", "handle"));
    expectErrors({
        {[&] { addClass("test.ns.Once"); }, "qcos:namespace:duplicateClass"},
        {[&] { addClass("test.other.Elsewhere"); }, "qcos:namespace:wrongNamespace"},
        {[&] { addClass("test.ns.inner.Deep"); }, "qcos:namespace:wrongNamespace"},
        {[] { qcos::omGetNamespace("not valid"); }, "qcos:namespace:invalidName"},
        {[] { qcos::omCreateObject("test.ns.Missing"); }, "qcos:class:undefined"},
        {[] { qcos::ScriptClassBuilder("QcosTestTopLevel").define(); }, "qcos:namespace:duplicateClass"},
        {[] { qcos::ScriptClassBuilder("test..Gap").define(); }, "qcos:class:invalidName"},
    });
}

TEST(Qcos, NativeObjectsLiveAsLongAsTheirLastOwnerAndAreAnnouncedOnce) {
    std::atomic<int> destroyed{0};
    auto native = std::make_shared<Probe>(destroyed);
    Probe const* const address = native.get();
    EXPECT_EQ(hostErrorIdentifier([&] { qcos::factory::full::acquireReference(native); }), "qcos:binding:notAnnounced");

    Registry::announce(native, qcos::internal::makeInterned("test.qcos.Probe"));
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
    EXPECT_EQ(Registry::announcedClassOf(address), "test.qcos.Probe");
    copy.reset();  // the last host reference
    EXPECT_EQ(destroyed, 1);
    EXPECT_FALSE(Registry::announcedClassOf(address).has_value());

    // A constructor's announcement yields to the first one and to a plain announcement.
    auto other = std::make_shared<Probe>(destroyed);
    Registry::announceForConstructor(other, "test.qcos.Probe");
    Registry::announceForConstructor(other, "test.qcos.Renamed");
    EXPECT_EQ(Registry::announcedClassOf(other.get()), "test.qcos.Probe");
    Registry::announce(other, "test.qcos.Renamed");
    EXPECT_EQ(Registry::announcedClassOf(other.get()), "test.qcos.Renamed");
    EXPECT_EQ(qcos::internal::makeInterned("x.Y"), qcos::internal::makeInterned(std::string("x.") + "Y"));
    other.reset();
    EXPECT_EQ(destroyed, 2);

    // Script objects wrap nothing native: the self check rejects them.
    defineShapes();
    auto const shape = qcos::omCreateObject("test.qcos.Shape");
    expectErrors({
        {[&] { qcos::factory::impl::validateSelfPointer(*shape); }, "qcos:binding:invalidSelf"},
        {[] { Registry::announce(nullptr, "x.Y"); }, "qcos:binding:nullObject"},
    });
}

TEST(Qcos, EnumerationMembersAndObjectArrayAccess) {
    enum class Level { Low = 0, High = 5 };
    auto info = std::make_shared<qcos::factory::EnumClassInfo<Level>>("test.qcos.Level");
    info->addMember("Low", Level::Low);
    info->addMember("High", Level::High);
    qcos::omGetInnerNamespace(qcos::omGetNamespace("test"), "qcos").addClass(info);
    EXPECT_EQ(
        qcos::cosiGetArrayElement(*qcos::omGetConstantProperty("test.qcos.Level", "High"), 0)->getEnumerationValue(),
        5);

    auto const slots = qcos::omCreateQCOSMatrix(2, 1, "test.qcos.Level");
    auto const numbers = qxArray::createDouble({1, 1});
    expectErrors({
        {[] { qcos::omCreateEnumeration("test.qcos.Level", 3); }, "qcos:enumeration:noSuchMember"},
        {[] { qcos::omCreateObject("test.qcos.Level"); }, "qcos:object:notConstructible"},
        {[&] { qcos::omGetArrayElement(*slots, 1); }, "qcos:array:emptySlot"},
        {[&] { qcos::omGetArrayElement(*slots, 2); }, "qx:array:indexOutOfRange"},
        {[&] { qcos::omGetArrayElement(*numbers, 0); }, "qcos:array:notObjectArray"},
        {[&] { computils::qcos::validateType(*numbers, "test.qcos.Level"); }, "qcos:type:wrongClass"},
    });
}

}  // namespace
