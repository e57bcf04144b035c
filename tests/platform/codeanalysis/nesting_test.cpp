// The nesting bound holds on a thread with a small stack: code nested up to the bound parses there, and code nested
// far deeper is an error, never a stack overflow.

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <gtest/gtest.h>

#include <pthread.h>

#include <functional>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define DEPATTR_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define DEPATTR_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DEPATTR_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define DEPATTR_THREAD_SANITIZER 1
#endif
#endif

namespace {

constexpr std::size_t smallStack = 256 << 10;

// Runs work on a new thread with `stackBytes` of stack.
void onThreadWithStack(std::size_t stackBytes, std::function<void()> const& work) {
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_attr_init(&attributes), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&attributes, stackBytes), 0);
    pthread_t thread;
    auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()> const*>(argument))();
        return nullptr;
    };
    auto const* argument = &work;
    ASSERT_EQ(::pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(argument)), 0);
    ::pthread_join(thread, nullptr);
    ::pthread_attr_destroy(&attributes);
}

std::string repeated(std::string const& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

struct Nesting {
    char const* name;
    std::function<std::string(int)> code;  // the construct nested `levels` deep
};

std::vector<Nesting> const& nestings() {
    static std::vector<Nesting> const all{
        {"parentheses", [](int n) { return "x = " + repeated("(", n) + "1" + repeated(")", n) + ";"; }},
        {"matrices", [](int n) { return "x = " + repeated("[", n) + "1" + repeated("]", n) + ";"; }},
        {"cells", [](int n) { return "x = " + repeated("{", n) + "1" + repeated("}", n) + ";"; }},
        {"calls", [](int n) { return "x = " + repeated("f(1, ", n) + "1" + repeated(")", n) + ";"; }},
        {"brace indexing", [](int n) { return "x = " + repeated("c{", n) + "1" + repeated("}", n) + ";"; }},
        {"dynamic fields", [](int n) { return "x = " + repeated("s.(", n) + "1" + repeated(")", n) + ";"; }},
        {"anonymous functions", [](int n) { return "x = " + repeated("@() ", n) + "1;"; }},
        {"superclass calls", [](int n) { return "x = " + repeated("obj@Base(", n) + "1" + repeated(")", n) + ";"; }},
        {"signs", [](int n) { return "x = " + repeated("-", n) + "1;"; }},
        {"exponent signs", [](int n) { return "x = 2^" + repeated("-", n) + "1;"; }},
        // seven levels a round
        {"mixed expressions",
         [](int n) { return "x = " + repeated("[f({s.(@() -o@B(", n / 7) + "1" + repeated("))})]", n / 7) + ";"; }},
        {"if blocks", [](int n) { return repeated("if x\n", n) + repeated("end\n", n); }},
        {"for loops", [](int n) { return repeated("for k = 1:2\n", n) + repeated("end\n", n); }},
        {"switch blocks", [](int n) { return repeated("switch x\ncase 1\n", n) + repeated("end\n", n); }},
        {"try blocks", [](int n) { return repeated("try\nx;\ncatch e\n", n) + repeated("end\n", n); }},
        {"spmd blocks", [](int n) { return repeated("spmd\n", n) + repeated("end\n", n); }},
        {"nested functions", [](int n) { return repeated("function f\n", n) + repeated("end\n", n); }},
    };
    return all;
}

bool nestedTooDeep(ca::AnalysisResult const& result) {
    return result.hasErrors() && result.getErrors().front().message.find("nested") != std::string::npos;
}

TEST(Nesting, DeepCodeIsAnErrorEvenOnASmallStack) {
    onThreadWithStack(smallStack, [] {
        for (auto const& nesting : nestings()) {
            EXPECT_TRUE(nestedTooDeep(*ca::analyzeText(nesting.code(100000)))) << nesting.name;
        }
        // Long flat sequences are not nesting.
        std::string chain = "x = 1";
        std::string statements;
        for (int i = 0; i < 100000; ++i) {
            chain += " + 1";
            statements += "x = 1;\n";
        }
        EXPECT_FALSE(ca::analyzeText(chain)->hasErrors());
        EXPECT_FALSE(ca::analyzeText(statements)->hasErrors());
    });
}

TEST(Nesting, TheBoundHoldsOnAThreadWith256KiBOfStack) {
#if defined(DEPATTR_ADDRESS_SANITIZER)
    GTEST_SKIP() << "the address sanitizer's frames are several times larger; the stack guard then stops the "
                    "parser earlier, with an error (checked by DeepCodeIsAnErrorEvenOnASmallStack)";
#elif defined(DEPATTR_THREAD_SANITIZER)
    GTEST_SKIP() << "the thread sanitizer keeps its per-thread state in thread-local storage, which the C library "
                    "places on the thread's stack: about half of a 256 KiB stack is gone before the thread runs; "
                    "the stack guard then stops the parser earlier, with an error (checked by "
                    "DeepCodeIsAnErrorEvenOnASmallStack)";
#elif !defined(__OPTIMIZE__)
    GTEST_SKIP() << "unoptimised frames are several times larger; the bound is sized for optimised builds";
#else
    // 250 levels of each construct, with the statement and expression around them, come within a few levels of
    // the bound; 300 go past it and fail on the bound, not on the stack.
    onThreadWithStack(smallStack, [] {
        for (auto const& nesting : nestings()) {
            auto const within = ca::analyzeText(nesting.code(250));
            EXPECT_FALSE(within->hasErrors()) << nesting.name << ": " << within->getErrors().front().message;
            auto const beyond = ca::analyzeText(nesting.code(300));
            ASSERT_TRUE(beyond->hasErrors()) << nesting.name;
            EXPECT_NE(beyond->getErrors().front().message.find("nested more than 256 levels"), std::string::npos)
                << nesting.name << ": " << beyond->getErrors().front().message;
        }
    });
#endif
}

}  // namespace
