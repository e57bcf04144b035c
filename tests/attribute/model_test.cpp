#include "attribute/Attribute.hpp"
#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/AttributeIdentity.hpp"
#include "attribute/GraphAttributes.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

using namespace dependency::attribute;

namespace {

AttributeIdentity identity(std::u16string id, std::u16string name, Severity severity) {
    return AttributeIdentity(id, name, severity);
}

}  // namespace

TEST(SeverityTest, NumericValuesAndNames) {
    EXPECT_EQ(static_cast<int>(Severity::Information), 0);
    EXPECT_EQ(static_cast<int>(Severity::Warning), 1);
    EXPECT_EQ(static_cast<int>(Severity::Problem), 2);
    EXPECT_EQ(toString(Severity::Information), "Information");
    EXPECT_EQ(toString(Severity::Warning), "Warning");
    EXPECT_EQ(toString(Severity::Problem), "Problem");
}

TEST(AttributeIdentityTest, OrderIsIdThenNameThenSeverityOverCodeUnits) {
    // Severity decides last, numerically.
    auto const warning = identity(u"X", u"n", Severity::Warning);
    auto const problem = identity(u"X", u"n", Severity::Problem);
    EXPECT_FALSE(warning == problem);
    EXPECT_TRUE(warning != problem);
    EXPECT_TRUE(warning < problem);
    EXPECT_FALSE(problem < warning);

    // The ID decides before the Name.
    EXPECT_TRUE(identity(u"A", u"z", Severity::Problem) < identity(u"B", u"a", Severity::Information));
    EXPECT_FALSE(identity(u"B", u"a", Severity::Information) < identity(u"A", u"z", Severity::Problem));
    // The Name decides before the severity.
    EXPECT_TRUE(identity(u"A", u"a", Severity::Problem) < identity(u"A", u"b", Severity::Information));

    // Code-unit order: empty first, prefix first, upper case before lower case,
    // and units above the surrogate range after those inside it (unsigned).
    EXPECT_TRUE(identity(u"", u"", Severity::Problem) < identity(u"A", u"", Severity::Information));
    EXPECT_TRUE(identity(u"Ab", u"", Severity::Problem) < identity(u"Abc", u"", Severity::Information));
    EXPECT_TRUE(identity(u"Z", u"", Severity::Problem) < identity(u"a", u"", Severity::Information));
    EXPECT_TRUE(identity(u"\xD83D", u"", Severity::Problem) < identity(u"\xFF21", u"", Severity::Information));
    EXPECT_TRUE(identity(u"\x00E9", u"", Severity::Problem) < identity(u"\x4E00", u"", Severity::Information));
}

TEST(AttributeIdentityTest, DistinctObjectsWithEqualValuesAreEqualAndEquivalent) {
    auto const a = identity(u"Missing", u"File is missing", Severity::Warning);
    auto const b = identity(u"Missing", u"File is missing", Severity::Warning);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(a == a);
    // Same ID, other Name: different identities.
    EXPECT_FALSE(a == identity(u"Missing", u"Function is missing", Severity::Warning));
    EXPECT_FALSE(a == identity(u"Missing ", u"File is missing", Severity::Warning));
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

TEST(AttributeTest, ForwardsToTheSharedIdentityObject) {
    auto const shared = std::make_shared<AttributeIdentity>(u"Id", u"Name", Severity::Warning);
    Attribute const first(shared, {});
    Attribute const second(shared, {});
    EXPECT_EQ(first.getIdentity(), shared);
    EXPECT_EQ(&first.getSeverity(), &second.getSeverity());
    EXPECT_EQ(&first.getID(), &shared->getID());
    EXPECT_EQ(&first.getName(), &shared->getName());
    EXPECT_EQ(first.getSeverity(), Severity::Warning);
    EXPECT_EQ(shared.use_count(), 3);  // ours and the two attributes'
    EXPECT_EQ(first.getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.Attribute");
}

TEST(AttributeTest, SharedObjectsHandOutFurtherOwnersOfThemselves) {
    auto const identityObject = std::make_shared<AttributeIdentity>(u"Id", u"Name", Severity::Warning);
    auto const attribute = std::make_shared<Attribute>(identityObject, std::function<void()>{});
    auto const again = attribute->sharedAs<Attribute>();
    EXPECT_EQ(again, attribute);
    EXPECT_EQ(attribute.use_count(), 2);

    depattr_test::ScriptedAnalyzer const analyzer([](auto const&) { return std::vector<std::shared_ptr<Attribute>>{}; });
    EXPECT_EQ(analyzer.getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.AttributeAnalyzer");
    EXPECT_EQ(analyzer.getSharingType(), dependency::services::SharingType::SharedHandle);
}
