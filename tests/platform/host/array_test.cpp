#include "platform/host/Array.hpp"
#include "platform/host/Qcos.hpp"
#include "support/HostCalls.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

namespace {

using depattr_test::hostErrorIdentifier;

TEST(HostArray, ElementsAreStoredInColumnMajorOrder) {
    auto array = qxArray::createDouble({2, 3});
    // Fill by subscripts; the linear order must run down the columns first.
    for (std::size_t column = 0; column < 3; ++column) {
        for (std::size_t row = 0; row < 2; ++row) {
            array->setDouble(array->linearIndex({row, column}), static_cast<double>(10 * row + column));
        }
    }
    std::vector<double> linear;
    for (std::size_t i = 0; i < array->getNumberOfElements(); ++i) {
        linear.push_back(array->getDouble(i));
    }
    EXPECT_EQ(linear, (std::vector<double>{0, 10, 1, 11, 2, 12}));

    auto cube = qxArray::createLogical({2, 3, 4});
    EXPECT_EQ(cube->linearIndex({1, 2, 3}), 1u + 2u * 2u + 3u * 6u);
    EXPECT_EQ(hostErrorIdentifier([&] { cube->linearIndex({0, 3}); }), "qx:array:subscriptOutOfRange");
    // Trailing subscripts address singleton dimensions.
    EXPECT_EQ(array->linearIndex({1, 2, 0}), 5u);
    EXPECT_EQ(hostErrorIdentifier([&] { array->linearIndex({0, 0, 1}); }), "qx:array:subscriptOutOfRange");
}

TEST(HostArray, DimensionsAreNormalisedAndEmptiesAreOneByZero) {
    EXPECT_EQ(qxArray::createDouble({2, 3, 1, 1})->getDimensions(), (qxArray::Dimensions{2, 3}));
    EXPECT_EQ(qxArray::createDouble({4})->getDimensions(), (qxArray::Dimensions{4, 1}));
    EXPECT_EQ(qxArray::createDouble({})->getDimensions(), (qxArray::Dimensions{0, 0}));
    EXPECT_EQ(qxArray::createDouble({2, 1, 3})->getDimensions(), (qxArray::Dimensions{2, 1, 3}));

    auto const empty = qxArray::createEmpty();
    EXPECT_EQ(empty->getDimensions(), (qxArray::Dimensions{1, 0}));
    EXPECT_TRUE(empty->isEmpty());
    EXPECT_EQ(empty->getClassName(), "double");

    auto const noText = qxArray::createString(u"");
    EXPECT_EQ(noText->getDimensions(), (qxArray::Dimensions{1, 0}));
    EXPECT_EQ(noText->getClassName(), "char");

    std::size_t const huge = std::size_t{1} << 40;
    EXPECT_EQ(hostErrorIdentifier([&] { qxArray::createDouble({huge, huge}); }), "qx:array:tooLarge");
}

TEST(HostArray, ElementAccessChecksKindAndRange) {
    auto text = matrix::to_qorvex(std::u16string_view(u"héllo"));
    EXPECT_EQ(text->getDimensions(), (qxArray::Dimensions{1, 5}));
    EXPECT_EQ(text->getString(), u"héllo");
    EXPECT_EQ(text->getChar(1), u'é');
    EXPECT_EQ(hostErrorIdentifier([&] { text->getDouble(0); }), "qx:array:wrongElementType");
    EXPECT_EQ(hostErrorIdentifier([&] { text->getChar(5); }), "qx:array:indexOutOfRange");

    auto flag = matrix::to_qorvex(true);
    EXPECT_TRUE(flag->getLogical(0));
    flag->setLogical(0, false);
    EXPECT_FALSE(flag->getLogical(0));
    EXPECT_EQ(hostErrorIdentifier([&] { flag->setDouble(0, 1.0); }), "qx:array:wrongElementType");
    EXPECT_EQ(hostErrorIdentifier([&] { flag->getObject(0); }), "qx:array:wrongElementType");
    EXPECT_EQ(hostErrorIdentifier([] { qxArray::createObjects({1, 1}, ""); }), "qx:array:noClassName");
}

TEST(HostArray, ArgumentCountErrorsAreHostErrors) {
    EXPECT_EQ(hostErrorIdentifier([] { matrix::detail::error_maxlhs(); }), "qorvex:maxlhs");
    EXPECT_EQ(hostErrorIdentifier([] { matrix::detail::error_maxrhs(); }), "qorvex:maxrhs");
    EXPECT_EQ(hostErrorIdentifier([] { matrix::detail::error_minrhs(); }), "qorvex:minrhs");
    EXPECT_EQ(depattr_test::whatOf<qcos::HostError>([] { matrix::detail::error_minrhs(); }),
              "Not enough input arguments.");
}

TEST(HostArray, CellsStructsAndStringsHoldSharedValues) {
    auto cell = qxArray::createCell({1, 2});
    // Elements never set read as 0-by-0 double arrays.
    EXPECT_EQ(cell->getCell(1)->getDimensions(), (qxArray::Dimensions{0, 0}));
    auto shared = qxArray::share(matrix::to_qorvex(3.0));
    cell->setCell(0, shared);
    auto copy = cell->clone();
    // A copy shares its elements rather than copying them.
    EXPECT_EQ(copy->getCell(0).get(), shared.get());
    EXPECT_TRUE(shared->isShared());

    auto record = qxArray::createStruct({1, 2}, {"a"});
    EXPECT_EQ(record->fieldIndex("b"), -1);
    record->setField(1, 0, qxArray::share(qxArray::createString(u"x")));
    EXPECT_EQ(record->addField("b"), 1u);
    // Adding a field keeps every element's earlier values.
    EXPECT_EQ(record->getField(1, 0)->getString(), u"x");
    EXPECT_EQ(record->getField(0, 1)->getClassName(), "double");
    record->removeField(0);
    EXPECT_EQ(record->getFieldNames(), (std::vector<std::string>{"b"}));
    EXPECT_EQ(hostErrorIdentifier([&] { record->getField(0, 1); }), "qx:array:noSuchField");

    auto text = qxArray::createStringScalar(u"two words");
    EXPECT_EQ(text->getClassName(), "string");
    EXPECT_TRUE(text->isScalar());
    // A string scalar reads as its text wherever one string is expected.
    EXPECT_EQ(text->getString(), u"two words");
    EXPECT_EQ(hostErrorIdentifier([] { qxArray::createStrings({1, 2})->getString(); }), "qx:array:wrongElementType");
}

TEST(HostArray, UnshareGivesTheArrayBackOnlyToItsLastOwner) {
    auto array = matrix::to_qorvex(1.0);
    auto const* address = array.get();
    auto first = qxArray::share(std::move(array));
    auto second = first;
    auto copied = qxArray::unshare(std::move(second));
    // Another owner remains: the caller gets a copy it may change.
    EXPECT_NE(copied.get(), address);
    copied->setDouble(0, 2.0);
    EXPECT_EQ(first->getDouble(0), 1.0);
    auto taken = qxArray::unshare(std::move(first));
    EXPECT_EQ(taken.get(), address);
    EXPECT_FALSE(taken->isShared());

    auto matrix = qxArray::createDouble({2, 3});
    matrix->reshape({3, 2, 1});
    EXPECT_EQ(matrix->getDimensions(), (qxArray::Dimensions{3, 2}));
    EXPECT_EQ(hostErrorIdentifier([&] { matrix->reshape({4, 2}); }), "qx:array:reshape");
}

TEST(HostArray, GrowingInPlaceKeepsEveryElementAtItsLinearIndex) {
    // A row grown one element at a time keeps its elements and zero-fills the new ones.
    auto row = qxArray::createDouble({1, 0});
    for (std::size_t n = 1; n <= 1000; ++n) {
        row->growInPlace({1, n + 1});
        row->setDouble(n - 1, static_cast<double>(n));
    }
    EXPECT_EQ(row->getDimensions(), (qxArray::Dimensions{1, 1001}));
    EXPECT_EQ(row->getDouble(0), 1.0);
    EXPECT_EQ(row->getDouble(999), 1000.0);
    EXPECT_EQ(row->getDouble(1000), 0.0);

    auto cells = qxArray::createCell({3, 1});
    cells->setCell(2, qxArray::share(qxArray::createScalar(7)));
    cells->growInPlace({5, 1});
    EXPECT_EQ(cells->getCell(2)->getDouble(0), 7.0);
    EXPECT_TRUE(cells->getCell(4)->isEmpty());

    auto text = qxArray::createString(u"ab");
    text->growInPlace({1, 3});
    EXPECT_EQ(text->getString(), std::u16string(u"ab\0", 3));

    auto records = qxArray::createStruct({1, 1}, {"a", "b"});
    records->setField(0, 1, qxArray::share(qxArray::createScalar(2)));
    records->growInPlace({1, 2});
    EXPECT_EQ(records->getField(0, 1)->getDouble(0), 2.0);
    EXPECT_TRUE(records->getField(1, 1)->isEmpty());

    // A 2-by-2 matrix may gain pages but not rows or columns; nothing shrinks.
    auto matrix = qxArray::createDouble({2, 2});
    matrix->setDouble(3, 4);
    EXPECT_TRUE(matrix->canGrowInPlace({2, 2, 3}));
    EXPECT_FALSE(matrix->canGrowInPlace({3, 2}));
    EXPECT_FALSE(matrix->canGrowInPlace({2, 1}));
    EXPECT_EQ(hostErrorIdentifier([&] { matrix->growInPlace({2, 3, 1}); }), "no error");
    EXPECT_EQ(matrix->getDouble(3), 4.0);
    EXPECT_EQ(hostErrorIdentifier([&] { matrix->growInPlace({3, 3}); }), "qx:array:grow");
    // A column grows down or gains columns, a row only gains columns, a
    // scalar grows either way; an empty array takes any size.
    EXPECT_TRUE(qxArray::createDouble({3, 1})->canGrowInPlace({4, 1}));
    EXPECT_TRUE(qxArray::createDouble({3, 1})->canGrowInPlace({3, 2}));
    EXPECT_FALSE(qxArray::createDouble({1, 3})->canGrowInPlace({2, 3}));
    EXPECT_TRUE(qxArray::createScalar(1)->canGrowInPlace({1, 2}));
    EXPECT_TRUE(qxArray::createDouble({0, 3})->canGrowInPlace({4, 4}));
    EXPECT_EQ(hostErrorIdentifier([&] {
                  qxArray::createDouble({1, 1})->growInPlace({1, std::size_t{1} << 50});
              }),
              "qx:array:tooLarge");
}

}  // namespace
