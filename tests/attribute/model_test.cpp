#include "attribute/Attribute.hpp"
#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/AttributeIdentity.hpp"
#include "attribute/GraphAttributes.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <tuple>

using namespace dependency::attribute;

namespace {

AttributeIdentity identity(std::u16string id, std::u16string name, Severity severity) {
    return AttributeIdentity(id, name, severity);
}

}  // namespace

TEST(SeverityTest, NumericValuesAndNames) {
    for (auto const& [severity, value, name] :
         {std::tuple{Severity::Information, 0, "Information"}, std::tuple{Severity::Warning, 1, "Warning"},
          std::tuple{Severity::Problem, 2, "Problem"}}) {
        EXPECT_EQ(static_cast<int>(severity), value);
        EXPECT_EQ(toString(severity), name);
    }
}

TEST(AttributeIdentityTest, OrderIsIdThenNameThenSeverityOverCodeUnitsAndEqualValuesAreEqual) {
    auto const less = [](std::u16string id, std::u16string name, Severity severity, std::u16string otherId,
                         std::u16string otherName, Severity otherSeverity) {
        auto const a = identity(id, name, severity);
        auto const b = identity(otherId, otherName, otherSeverity);
        EXPECT_FALSE(a == b);
        EXPECT_TRUE(a != b);
        EXPECT_FALSE(b < a);
        return a < b;
    };
    auto const I = Severity::Information;
    auto const P = Severity::Problem;
    EXPECT_TRUE(less(u"X", u"n", Severity::Warning, u"X", u"n", P));  // severity decides last, numerically
    EXPECT_TRUE(less(u"A", u"z", P, u"B", u"a", I));                  // the ID before the Name
    EXPECT_TRUE(less(u"A", u"a", P, u"A", u"b", I));                  // the Name before the severity
    // Code-unit order: empty first, prefix first, upper case before lower case,
    // and units above the surrogate range after those inside it (unsigned).
    EXPECT_TRUE(less(u"", u"", P, u"A", u"", I));
    EXPECT_TRUE(less(u"Ab", u"", P, u"Abc", u"", I));
    EXPECT_TRUE(less(u"Z", u"", P, u"a", u"", I));
    EXPECT_TRUE(less(u"\xD83D", u"", P, u"\xFF21", u"", I));
    EXPECT_TRUE(less(u"\x00E9", u"", P, u"\x4E00", u"", I));
    // Same ID, other Name or a trailing space: different identities.
    EXPECT_TRUE(less(u"Missing", u"File is missing", I, u"Missing", u"Function is missing", I));
    EXPECT_TRUE(less(u"Missing", u"File is missing", I, u"Missing ", u"File is missing", I));

    // Distinct objects with equal values are equal and equivalent.
    auto const a = identity(u"Missing", u"File is missing", Severity::Warning);
    auto const b = identity(u"Missing", u"File is missing", Severity::Warning);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_FALSE(a < b || b < a);
    EXPECT_EQ(a.getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.AttributeIdentity");
}

TEST(AttributeTest, FixSemantics) {
    auto const shared = std::make_shared<AttributeIdentity>(u"Id", u"Name", Severity::Problem);

    Attribute const withoutFix(shared, {});
    EXPECT_FALSE(withoutFix.hasFix());
    EXPECT_THROW(withoutFix.applyFix(), std::bad_function_call);

    int applied = 0;
    Attribute const withFix(shared, [&applied] { ++applied; });
    EXPECT_TRUE(withFix.hasFix());
    withFix.applyFix();
    withFix.applyFix();
    EXPECT_EQ(applied, 2);

    // A fix that fails passes its exception through.
    Attribute const failing(shared, [] { throw std::runtime_error("cannot repair"); });
    EXPECT_THROW(failing.applyFix(), std::runtime_error);
}

TEST(AttributeTest, ForwardsToTheSharedIdentityAndHandsOutFurtherOwnersOfItself) {
    auto const shared = std::make_shared<AttributeIdentity>(u"Id", u"Name", Severity::Warning);
    auto const attribute = std::make_shared<Attribute>(shared, std::function<void()>{});
    EXPECT_EQ(attribute->getIdentity(), shared);
    EXPECT_EQ(&attribute->getSeverity(), &shared->getSeverity());
    EXPECT_EQ(&attribute->getID(), &shared->getID());
    EXPECT_EQ(&attribute->getName(), &shared->getName());
    EXPECT_EQ(attribute->sharedAs<Attribute>(), attribute);
    EXPECT_EQ(attribute.use_count(), 1);

    depattr_test::ScriptedAnalyzer const analyzer(
        [](auto const&) { return std::vector<std::shared_ptr<Attribute>>{}; });
    EXPECT_EQ(analyzer.getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.AttributeAnalyzer");
    EXPECT_EQ(analyzer.getSharingType(), dependency::services::SharingType::SharedHandle);
}
