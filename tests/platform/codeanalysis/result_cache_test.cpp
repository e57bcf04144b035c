// The result cache on its own: the byte bound, least-recently-used eviction, versions, and its capacity setting.

#include "platform/codeanalysis/detail/ResultCache.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using ca::detail::FileVersion;
using ca::detail::ResultCache;

// A result of about `codeBytes` times ten bytes: a tree of that many simple statements.
std::shared_ptr<ca::AnalysisResult const> resultOf(std::size_t codeBytes) {
    std::string code;
    while (code.size() < codeBytes) {
        code += "x = y + 1;\n";
    }
    return ca::analyzeText(code);
}

FileVersion version(std::int64_t size) {
    FileVersion v;
    v.size = size;
    return v;
}

TEST(ResultCache, HoldsResultsUpToItsBytesAndDropsTheLeastRecentlyUsed) {
    auto const a = resultOf(20000);
    auto const b = resultOf(20000);
    auto const c = resultOf(20000);
    ASSERT_GT(a->memoryBytes(), 100000u);
    // Room for two results, not three.
    ResultCache cache(a->memoryBytes() * 5 / 2);
    cache.store(u"a", version(1), a);
    cache.store(u"b", version(1), b);
    EXPECT_EQ(cache.find(u"a", version(1)), a);  // a is now the most recently used
    cache.store(u"c", version(1), c);
    EXPECT_EQ(cache.find(u"b", version(1)), nullptr);
    EXPECT_EQ(cache.find(u"a", version(1)), a);
    EXPECT_EQ(cache.find(u"c", version(1)), c);
    EXPECT_EQ(cache.size(), 2u);
    EXPECT_LE(cache.heldBytes(), cache.capacity());
    EXPECT_GE(cache.heldBytes(), a->memoryBytes() + c->memoryBytes());

    // Shrinking drops the least recently used (a, since c was found last) until the rest fits.
    cache.setCapacity(cache.heldBytes() - 1);
    EXPECT_EQ(cache.find(u"a", version(1)), nullptr);
    EXPECT_EQ(cache.find(u"c", version(1)), c);
    cache.setCapacity(0);
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_EQ(cache.heldBytes(), 0u);
}

TEST(ResultCache, KeepsNothingLargerThanItsCapacityAndNothingOfAnotherVersion) {
    auto const big = resultOf(20000);
    auto const small = resultOf(10);
    ResultCache cache(big->memoryBytes() / 2);
    cache.store(u"small", version(1), small);
    cache.store(u"big", version(1), big);
    EXPECT_EQ(cache.find(u"big", version(1)), nullptr);
    EXPECT_EQ(cache.find(u"small", version(1)), small);  // the big one made no room for itself

    FileVersion moved = version(1);
    moved.inode = 7;
    EXPECT_EQ(cache.find(u"small", moved), nullptr);
    // A new version replaces the old one and is counted once.
    auto const held = cache.heldBytes();
    cache.store(u"small", moved, small);
    EXPECT_EQ(cache.find(u"small", moved), small);
    EXPECT_EQ(cache.find(u"small", version(1)), nullptr);
    EXPECT_EQ(cache.heldBytes(), held);
}

TEST(ResultCache, CapacitySettingIsAByteCountWithAnOptionalUnit) {
    using ca::detail::parseByteCount;
    EXPECT_EQ(parseByteCount("0"), 0u);
    EXPECT_EQ(parseByteCount("1234"), 1234u);
    EXPECT_EQ(parseByteCount("64K"), 64u << 10);
    EXPECT_EQ(parseByteCount("256M"), std::size_t{256} << 20);
    EXPECT_EQ(parseByteCount("2G"), std::size_t{2} << 30);
    for (char const* bad : {"", "K", "-1", "1.5M", "12k", "1MB", " 1", "1 ", "99999999999999999999", "17179869184G"}) {
        EXPECT_EQ(parseByteCount(bad), std::nullopt) << bad;
    }

    ::setenv("DEPATTR_PARSE_CACHE_BYTES", "3M", 1);
    EXPECT_EQ(ca::detail::capacityFromEnvironment(), std::size_t{3} << 20);
    ::setenv("DEPATTR_PARSE_CACHE_BYTES", "lots", 1);
    EXPECT_EQ(ca::detail::capacityFromEnvironment(), ca::defaultResultCacheCapacity);
    ::unsetenv("DEPATTR_PARSE_CACHE_BYTES");
    EXPECT_EQ(ca::detail::capacityFromEnvironment(), ca::defaultResultCacheCapacity);
}

}  // namespace
