// The library's classes as the host sees them: names, superclasses, members in
// registration order with their declared types, and what the members do.

#include "HostTestSupport.hpp"

#include "attribute/Attribute.hpp"
#include "services/HostObjects.hpp"

#include <array>

namespace {

using namespace depattr_test;
using Kind = qcos::COSClassInfo::MemberKind;
using Declaration = qcos::COSClassInfo::Declaration;
namespace attribute = dependency::attribute;

class Bindings : public HostTest {};

std::vector<std::string> const* typesOf(std::string_view className, std::string_view method, std::size_t overload,
                                        bool outputs) {
    auto const info = qcos::omFindClass(className);
    auto const* found = info->findOwnMethod(method);
    if (found == nullptr || overload >= found->getOverloads().size()) {
        return nullptr;
    }
    auto const& signature = found->getOverloads()[overload].signature;
    return outputs ? &signature.outputTypes : &signature.inputTypes;
}

TEST_F(Bindings, ClassesAreDeclaredInRegistrationOrderWithTheirTypes) {
    std::string const ns = "dependencies.internal.attribute.";
    // Initialising again registers nothing anew.
    auto const registered = qcos::omFindClass(ns + "Attribute");
    QLInitialize_depattr();
    QLTerminate_depattr();
    EXPECT_EQ(qcos::omFindClass(ns + "Attribute"), registered);
    std::string const heterogeneous = "qorvex.mixin.Heterogeneous";
    struct Expected {
        std::string className;
        std::vector<Declaration> declarations;
    };
    std::vector<Expected> const expected{
        {ns + "Severity",
         {{Kind::EnumerationMember, "Information"},
          {Kind::EnumerationMember, "Warning"},
          {Kind::EnumerationMember, "Problem"}}},
        {ns + "AttributeIdentity",
         {{Kind::Superclass, heterogeneous},
          {Kind::Method, "AttributeIdentity"},
          {Kind::Property, "ID"},
          {Kind::Property, "Name"},
          {Kind::Property, "Severity"}}},
        {ns + "Attribute",
         {{Kind::Superclass, heterogeneous},
          {Kind::Property, "ID"},
          {Kind::Property, "Name"},
          {Kind::Method, "hasFix"},
          {Kind::Method, "applyFix"},
          {Kind::Property, "Identity"},
          {Kind::Property, "Severity"}}},
        {ns + "AttributeAnalyzer", {{Kind::Superclass, heterogeneous}, {Kind::Method, "analyze"}}},
        {ns + "GraphAttributes",
         {{Kind::Method, "getAttributes"}, {Kind::Method, "getNodesWith"}, {Kind::Method, "getAllProblemIdentities"}}},
    };
    for (auto const& [className, declarations] : expected) {
        auto const info = qcos::omFindClass(className);
        ASSERT_TRUE(info) << className;
        EXPECT_EQ(info->getDeclarations(), declarations) << className;
        EXPECT_EQ(info->isNativeBinding(), className != ns + "Severity") << className;
    }
    auto const severity = qcos::omFindClass(ns + "Severity");
    EXPECT_TRUE(severity->isEnumeration());
    EXPECT_EQ(severity->getEnumerationMembers(),
              (std::vector<std::pair<std::string, std::int64_t>>{{"Information", 0}, {"Warning", 1}, {"Problem", 2}}));

    for (auto const& [className, name, type] :
         std::vector<std::array<std::string, 3>>{{"AttributeIdentity", "ID", "any"},
                                                 {"AttributeIdentity", "Severity", ns + "Severity"},
                                                 {"Attribute", "Name", "any"},
                                                 {"Attribute", "Identity", ns + "AttributeIdentity"}}) {
        EXPECT_EQ(qcos::omFindClass(ns + className)->findOwnProperty(name)->type, type) << className << "." << name;
    }

    using Types = std::vector<std::string>;
    std::string const node = "dependencies.internal.graph.Node";
    EXPECT_EQ(*typesOf(ns + "AttributeIdentity", "AttributeIdentity", 0, false),
              (Types{"QcosFactoryString scalar", "QcosFactoryString scalar", ns + "Severity"}));
    EXPECT_TRUE(
        qcos::omFindClass(ns + "AttributeIdentity")->findOwnMethod("AttributeIdentity")->getAttributes().isStatic);
    EXPECT_EQ(*typesOf(ns + "Attribute", "hasFix", 0, true), Types{"logical scalar"});
    EXPECT_EQ(*typesOf(ns + "Attribute", "applyFix", 0, true), Types{"void"});
    EXPECT_EQ(*typesOf(ns + "AttributeAnalyzer", "analyze", 0, true), Types{ns + "Attribute vector"});
    EXPECT_EQ(*typesOf(ns + "AttributeAnalyzer", "analyze", 0, false),
              (Types{ns + "AttributeAnalyzer", node, "dependencies.internal.graph.Graph"}));
    EXPECT_EQ(*typesOf(ns + "GraphAttributes", "getAttributes", 0, false), (Types{ns + "GraphAttributes", node}));
    EXPECT_EQ(*typesOf(ns + "GraphAttributes", "getAttributes", 1, false),
              (Types{ns + "GraphAttributes", node, ns + "Severity"}));
    EXPECT_EQ(*typesOf(ns + "GraphAttributes", "getNodesWith", 0, true), Types{node + " vector"});
    EXPECT_EQ(*typesOf(ns + "GraphAttributes", "getAllProblemIdentities", 0, true),
              Types{ns + "AttributeIdentity vector"});
}

TEST_F(Bindings, IdentitiesAndAttributesReadBackTheirNativeValues) {
    auto const identity = makeIdentity(u"Naming", u"Bad name", "Warning");
    EXPECT_EQ(identity->getClassName(), "dependencies.internal.attribute.AttributeIdentity");
    // Two attributes of one kind share the very identity object, and read its values through.
    auto const first = makeAttribute(*identity);
    auto const second = makeAttribute(*identity);
    auto const native = matrix::from_qorvex<attribute::AttributeIdentity>(*identity);
    EXPECT_EQ(matrix::from_qorvex<attribute::AttributeIdentity>(*property(*first, "Identity")), native);
    EXPECT_EQ(matrix::from_qorvex<attribute::AttributeIdentity>(*property(*second, "Identity")), native);
    for (qxArray const* object : {identity.get(), first.get()}) {
        EXPECT_EQ(property(*object, "ID")->getString(), u"Naming") << object->getClassName();
        EXPECT_EQ(property(*object, "Name")->getString(), u"Bad name") << object->getClassName();
        EXPECT_EQ(qcos::cosiGetArrayElement(*property(*object, "Severity"), 0)->getEnumerationValue(), 1);
    }

    // Without a fix, applyFix fails in the host caller with the native error.
    EXPECT_FALSE(callOne("hasFix", {first.get()})->getLogical(0));
    auto const error = expectHostError([&] { callMethod("applyFix", {first.get()}, 0); }, "qcos:call:nativeError");
    EXPECT_EQ(error.context(), "applyFix");
    EXPECT_STREQ(error.what(), std::bad_function_call().what());

    // The constructor checks its input types before any work.
    auto const number = matrix::to_qorvex(1.0);
    auto const name = text(u"x");
    auto const level = severity("Problem");
    qxArray const* wrong[] = {number.get(), name.get(), level.get()};
    qxArrayPtr out[1];
    EXPECT_FALSE(qcos::omCallStaticMethod(qcos::COSGetPublicClient(),
                                          "dependencies.internal.attribute.AttributeIdentity", "AttributeIdentity", 1,
                                          out, 3, wrong));
    expectHostError([] { computils::qcos::throwErrorCallingQorvexException("AttributeIdentity"); },
                    "qcos:method:wrongArgumentType");
}

TEST_F(Bindings, AFixGivenAsAFunctionHandleRunsOnApplyFix) {
    static std::atomic<int> applied{0};
    qvm::registerHostFunction("test_services_countFix", [](std::span<qxArray const* const>, int) {
        ++applied;
        return std::vector<qxArrayPtr>{};
    });
    auto const identity = makeIdentity(u"Fixable", u"Can be fixed", "Problem");
    auto const fix = qxArray::createFunctionHandle(qvm::makeNamedFunctionHandle("test_services_countFix"));
    auto const create = [](std::vector<qxArray const*> inputs, int outputCount = 1) {
        return feval("createAttribute", std::move(inputs), outputCount);
    };
    auto const fixable = std::move(create({identity.get(), fix.get()}).front());
    EXPECT_TRUE(callOne("hasFix", {fixable.get()})->getLogical(0));
    callMethod("applyFix", {fixable.get()}, 0);
    callMethod("applyFix", {fixable.get()}, 0);
    EXPECT_EQ(applied.load(), 2);

    // createAttribute checks its arguments before it makes anything.
    auto const notHandle = matrix::to_qorvex(3.0);
    expectHostError([&] { create({identity.get(), notHandle.get()}); }, "depattr:createAttribute:notFunctionHandle");
    expectHostError([&] { create({notHandle.get()}); }, "qcos:type:wrongClass");
    expectHostError([&] { create({}); }, "qorvex:minrhs");
    expectHostError([&] { create({identity.get(), fix.get(), fix.get()}); }, "qorvex:maxrhs");
    expectHostError([&] { create({identity.get()}, 2); }, "qorvex:maxlhs");
}

TEST_F(Bindings, VectorsBecomeHeterogeneousRowsAndReadBackToTheSameObjects) {
    std::string const className = "dependencies.internal.attribute.Attribute";
    auto const identity =
        matrix::from_qorvex<attribute::AttributeIdentity>(*makeIdentity(u"Missing", u"File not found", "Problem"));
    std::vector<std::shared_ptr<attribute::Attribute>> natives{
        std::make_shared<attribute::Attribute>(identity, nullptr),
        std::make_shared<attribute::Attribute>(identity, nullptr)};
    auto const row = dependency::services::detail::toHostRow(natives, className);
    EXPECT_EQ(row->getDimensions(), (qxArray::Dimensions{1, 2}));
    EXPECT_TRUE(row->isHeterogeneous());
    EXPECT_EQ(dependency::services::detail::fromHostArray<attribute::Attribute>(*row, className), natives);

    auto const empty = dependency::services::detail::toHostRow(decltype(natives){}, className);
    EXPECT_EQ(empty->getDimensions(), (qxArray::Dimensions{1, 0}));
    EXPECT_EQ(empty->getClassName(), className);
}

}  // namespace
