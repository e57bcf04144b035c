#include "platform/foundation/Exception.hpp"

#include <gtest/gtest.h>

#include <boost/exception/get_error_info.hpp>

#include <cstdlib>
#include <memory>

namespace {

using foundation::core::except::Exception;
using foundation::core::except::IException;
using foundation::core::except::IMsgIDException;
using resource_core::BaseMsgID;

class ProductMissing : public BaseMsgID {
public:
    explicit ProductMissing(std::u16string const& product)
        : BaseMsgID("QORVEX:dependency:attribute", "MissingProductProblem", {product}) {}
};

using ProductMissingException = Exception<ProductMissing, std::exception, void>;

class FoundationExceptionTest : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("DEPATTR_RESOURCES", DEPATTR_SOURCE_DIR "/resources", 0); }
};

TEST_F(FoundationExceptionTest, IdentifierIsCatalogColonKey) {
    EXPECT_EQ(IMsgIDException::get_error_id(BaseMsgID("QORVEX:dependency:analysis", "AnalysisError")),
              "QORVEX:dependency:analysis:AnalysisError");
    ProductMissingException const error(ProductMissing(u"Signal Kit"));
    EXPECT_EQ(error.GetID(), "QORVEX:dependency:attribute:MissingProductProblem");
}

TEST_F(FoundationExceptionTest, MessageTextComesFromTheCatalogWithArguments) {
    ProductMissingException const error(ProductMissing(u"Signal Kit"));
    EXPECT_EQ(error.GetUnicodeMessageTxt(), u"Required product is not installed: Signal Kit");
    EXPECT_STREQ(error.what(), "Required product is not installed: Signal Kit");
    // Through each base the same text is seen.
    EXPECT_STREQ(static_cast<std::exception const&>(error).what(), error.what());
    EXPECT_STREQ(static_cast<IException const&>(error).what(), error.what());
    EXPECT_EQ(error.convert_str(std::string("caf\xc3\xa9")), u"café");
}

TEST_F(FoundationExceptionTest, WhatFallsBackToTheIdentifierWhenTheCatalogLacksTheKey) {
    Exception<BaseMsgID> const error(BaseMsgID("QORVEX:dependency:attribute", "NoSuchKey"));
    EXPECT_STREQ(error.what(), "QORVEX:dependency:attribute:NoSuchKey");
    EXPECT_THROW(error.GetUnicodeMessageTxt(), std::runtime_error);
}

TEST_F(FoundationExceptionTest, GetBaseMsgIDObjIsTheStoredValueNotACopy) {
    ProductMissingException const error(ProductMissing(u"Signal Kit"));
    IMsgIDException const& asInterface = error;
    BaseMsgID const& first = asInterface.GetBaseMsgIDObj();
    BaseMsgID const& second = asInterface.GetBaseMsgIDObj();
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(&first, &error.GetBaseMsgIDObj());
    EXPECT_EQ(first, ProductMissing(u"Signal Kit"));
}

TEST_F(FoundationExceptionTest, CloneAndRethrowKeepEverything) {
    ProductMissingException const error(ProductMissing(u"Signal Kit"));
    std::unique_ptr<IException> const copy(static_cast<IException const&>(error).clone());
    auto const* clone = dynamic_cast<ProductMissingException const*>(copy.get());
    ASSERT_NE(clone, nullptr);
    EXPECT_NE(clone, &error);
    EXPECT_EQ(clone->GetID(), error.GetID());
    EXPECT_EQ(clone->GetBaseMsgIDObj(), error.GetBaseMsgIDObj());
    EXPECT_NE(&clone->GetBaseMsgIDObj(), &error.GetBaseMsgIDObj());
    EXPECT_STREQ(clone->what(), error.what());

    try {
        copy->rethrow();
        FAIL() << "rethrow returned";
    } catch (ProductMissingException const& rethrown) {  // the most-derived type, not a base
        EXPECT_EQ(rethrown.GetID(), error.GetID());
        EXPECT_EQ(rethrown.GetBaseMsgIDObj().args(), error.GetBaseMsgIDObj().args());
    }
}

TEST_F(FoundationExceptionTest, BoostInformationStartsEmpty) {
    ProductMissingException const error(ProductMissing(u"x"));
    boost::exception const& info = error;
    EXPECT_EQ(boost::get_error_info<boost::throw_line>(info), nullptr);
    EXPECT_EQ(boost::get_error_info<boost::throw_file>(info), nullptr);
}

}  // namespace
