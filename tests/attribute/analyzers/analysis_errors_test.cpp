#include "AnalyzerTestSupport.hpp"

#include "attribute/AnalysisErrors.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace QORVEX::dependency::analysis;
using foundation::core::except::IException;
using foundation::core::except::IMsgIDException;

class AnalysisErrorsTest : public ::testing::Test {
protected:
    void SetUp() override { analyzer_test::useRepositoryResources(); }
};

TEST_F(AnalysisErrorsTest, MessageIdentifiersCarryCatalogKeyAndTypedArguments) {
    AnalysisError const error(std::u16string(u"/work/f.qx"));
    EXPECT_EQ(error.catalog(), "QORVEX:dependency:analysis");
    EXPECT_EQ(error.key(), "AnalysisError");
    ASSERT_EQ(error.args().size(), 1u);
    EXPECT_EQ(error.args()[0].index(), 2u);
    EXPECT_EQ(std::get<std::u16string>(error.args()[0]), u"/work/f.qx");

    // The path is always a UTF-16 argument: a narrow string or a number is no path.
    static_assert(!std::is_constructible_v<AnalysisError, std::string>);
    static_assert(!std::is_constructible_v<AnalysisError, char const*>);
    static_assert(!std::is_constructible_v<AnalysisError, long>);
    AnalysisError const literal(u"/データ/f.qx");
    EXPECT_EQ(literal.args(), std::vector<resource_core::MessageArgument>{std::u16string(u"/データ/f.qx")});

    AnalysisError const emptyPath(std::u16string{});
    ASSERT_EQ(emptyPath.args().size(), 1u);
    EXPECT_EQ(emptyPath.args()[0], resource_core::MessageArgument(std::u16string()));

    AnalysisParsingError const parsing;
    EXPECT_EQ(parsing.catalog(), "QORVEX:dependency:analysis");
    EXPECT_EQ(parsing.key(), "AnalysisParsingError");
    EXPECT_TRUE(parsing.args().empty());
}

TEST_F(AnalysisErrorsTest, ThrownErrorsAreSeenThroughEveryInterface) {
    try {
        throwAnalysisError(u"/work/f.qx");
        FAIL() << "nothing thrown";
    } catch (std::exception const& error) {
        EXPECT_STREQ(error.what(), "Unable to analyze the file '/work/f.qx'.");
        auto const* asMsgId = dynamic_cast<IMsgIDException const*>(&error);
        ASSERT_NE(asMsgId, nullptr);
        EXPECT_EQ(asMsgId->GetID(), "QORVEX:dependency:analysis:AnalysisError");
        EXPECT_EQ(asMsgId->GetUnicodeMessageTxt(), u"Unable to analyze the file '/work/f.qx'.");
        EXPECT_EQ(asMsgId->GetBaseMsgIDObj(), AnalysisError(std::u16string(u"/work/f.qx")));
    }
    try {
        throwAnalysisParsingError();
        FAIL() << "nothing thrown";
    } catch (IMsgIDException const& error) {
        EXPECT_EQ(error.GetID(), "QORVEX:dependency:analysis:AnalysisParsingError");
        EXPECT_EQ(error.GetUnicodeMessageTxt(), u"The code contains errors and could not be analyzed.");
        EXPECT_TRUE(error.GetBaseMsgIDObj().args().empty());
    }
}

TEST_F(AnalysisErrorsTest, CloneRethrowAndTheStoredIdentifier) {
    AnalysisErrorException const original{AnalysisError(std::u16string(u"a.qx"))};
    EXPECT_EQ(&original.GetBaseMsgIDObj(), &original.GetBaseMsgIDObj());

    std::unique_ptr<IException> const copy(static_cast<IException const&>(original).clone());
    auto const* clone = dynamic_cast<AnalysisErrorException const*>(copy.get());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->GetID(), original.GetID());
    EXPECT_EQ(clone->GetBaseMsgIDObj().catalog(), original.GetBaseMsgIDObj().catalog());
    EXPECT_EQ(clone->GetBaseMsgIDObj().key(), original.GetBaseMsgIDObj().key());
    EXPECT_EQ(clone->GetBaseMsgIDObj().args(), original.GetBaseMsgIDObj().args());
    EXPECT_NE(&clone->GetBaseMsgIDObj(), &original.GetBaseMsgIDObj());

    EXPECT_THROW(copy->rethrow(), AnalysisErrorException);
    AnalysisParsingErrorException const parsing{AnalysisParsingError()};
    EXPECT_THROW(static_cast<IException const&>(parsing).rethrow(), AnalysisParsingErrorException);
}

TEST_F(AnalysisErrorsTest, TheTextIsProducedInTheLanguageCurrentWhenAskedFor) {
    AnalysisErrorException const error{AnalysisError(std::u16string(u"/work/f.qx"))};
    {
        analyzer_test::JapaneseGlobalLocale const japanese;
        EXPECT_EQ(error.GetUnicodeMessageTxt(), u"ファイル '/work/f.qx' を解析できません。");
    }
    EXPECT_EQ(error.GetUnicodeMessageTxt(), u"Unable to analyze the file '/work/f.qx'.");
}

}  // namespace
