#include "platform/graph/GraphBuilder.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "platform/services/NullStreamBuffer.hpp"
#include "platform/services/Shareable.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

using namespace dependency::services;

namespace {

std::vector<Shareable const*> withdrawn;
void recordWithdrawal(Shareable const* object) noexcept {
    withdrawn.push_back(object);
}

class Thing : public Shareable {
public:
    Thing() : Shareable("test.Thing") {}
};

}  // namespace

TEST(ShareableTest, OnlyPublishedObjectsAreWithdrawnWhenDestroyed) {
    setWithdrawHook(&recordWithdrawal);
    withdrawn.clear();
    Shareable const* publishedAddress = nullptr;
    {
        auto published = std::make_shared<Thing>();
        auto privateOne = std::make_shared<Thing>();
        EXPECT_FALSE(published->isPublished());
        published->markPublished();
        EXPECT_TRUE(published->isPublished());
        publishedAddress = published.get();
    }
    setWithdrawHook(nullptr);
    EXPECT_EQ(withdrawn, (std::vector<Shareable const*>{publishedAddress}));
}

TEST(ShareableTest, HandsOutFurtherOwnersOnceOwned) {
    auto const thing = std::make_shared<Thing>();
    EXPECT_EQ(thing->getFullyQualifiedQcosTypeName(), "test.Thing");
    EXPECT_EQ(thing->sharedAs<Thing>(), thing);
    EXPECT_EQ(thing->sharedAs<ImmutableGraph>(), nullptr);  // wrong type: no owner
    Thing unowned;
    EXPECT_THROW(unowned.sharedAs<Thing>(), std::bad_weak_ptr);
}

TEST(ImmutableGraphTest, WrapsTheGraphUnderTheGraphClassName) {
    dependency::graph::GraphBuilder builder;
    builder.addNode(u"a", dependency::graph::Type::FILE());
    auto const graph = builder.build();
    auto const wrapper = std::make_shared<ImmutableGraph>(graph);
    EXPECT_EQ(wrapper->getGraph(), graph);
    EXPECT_EQ(wrapper->getFullyQualifiedQcosTypeName(), "dependencies.internal.graph.Graph");
}

TEST(NullStreamBufferTest, AcceptsAndDiscardsEverything) {
    auto const buffer = createNullStreamBuffer();
    std::basic_ostream<char16_t> stream(buffer.get());
    stream << u"some host output" << char16_t(u'x');
    stream.write(u"more", 4);
    stream.flush();
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(buffer->pubseekoff(0, std::ios_base::cur, std::ios_base::out), std::streampos(std::streamoff(-1)));
    EXPECT_NE(createNullStreamBuffer(), buffer);  // each call makes a new buffer
}
