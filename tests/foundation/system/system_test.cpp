// What can break here: a library that goes while its code is in use, names cut at a NUL byte, ids that repeat.
#include "foundation/exceptions.h"
#include "foundation/system/environment.h"
#include "foundation/system/sha1_engine.h"
#include "foundation/system/shared_library.h"
#include "foundation/system/uuid.h"
#include "support/forked_child.h"
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <regex>
#include <set>
#include <unistd.h>

namespace {

using fn::Environment;

TEST(Environment, RefusesNamesAndValuesThatTheSystemWouldCut)
{
    const fn::String cut = std::string_view("CORE_TEST\0X", 11);
    for (const auto& name : { fn::String(), fn::String("A=B"), cut }) {
        EXPECT_THROW(Environment::set(name, "x"), fn::IOException);
        EXPECT_THROW(Environment::unset(name), fn::IOException);
        EXPECT_EQ(Environment::get(name), std::nullopt);
    }
    EXPECT_THROW(Environment::set("CORE_TEST", cut), fn::IOException);
    EXPECT_EQ(::getenv("CORE_TEST"), nullptr);
}

TEST(Environment, NamesTheUserByNumberWhereTheSystemHasNoName)
{
    const auto* entry = ::getpwuid(::geteuid());
    EXPECT_EQ(Environment::userName(), entry ? fn::String(entry->pw_name) : fn::String::number(::geteuid()));

    constexpr uid_t unknown = 3'987'654'321; // Above what fits a signed number.
    if (::geteuid() != 0 || ::getpwuid(unknown)) GTEST_SKIP() << "another user is needed";
    test::ForkedChild child([] { return ::seteuid(unknown) == 0 && Environment::userName() == "3987654321"; });
    EXPECT_TRUE(child.succeeds());
}

TEST(UUIDGenerator, MakesRandomIdsUnlessReplaced)
{
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<fn::String> seen;
    for (int i = 0; i < 1000; ++i) {
        const auto text = fn::UUIDGenerator::defaultGenerator().createOne().toString();
        ASSERT_TRUE(std::regex_match(text.toStdString(), form)) << text.view();
        ASSERT_TRUE(seen.insert(text).second);
    }
    struct Constant final : fn::UUIDGenerator {
        fn::UUID createOne() override { return fn::UUID("1"); }
    } constant;
    fn::UUIDGenerator::setDefaultGenerator(&constant);
    EXPECT_EQ(fn::UUIDGenerator::defaultGenerator().createOne().toString(), "1");
    fn::UUIDGenerator::setDefaultGenerator(nullptr);
    EXPECT_EQ(fn::UUIDGenerator::defaultGenerator().createOne().toString().size(), 36U);
}

TEST(SHA1Engine, AddsUpPiecesAndStartsAnew)
{
    fn::SHA1Engine engine;
    EXPECT_EQ(engine.digest().hex(), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    engine.update("a", 1);
    engine.update("", 0);
    engine.update("bc", 2);
    EXPECT_EQ(engine.digest().hex(), "a9993e364706816aba3e25717850c26c9cd0d89d");
    engine.update("abc", 3);
    EXPECT_EQ(engine.digest().hex(), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(SharedLibrary, StaysLoadedAndKeepsItsSymbolsToItself)
{
    int (*countCalls)() = nullptr;
    {
        fn::SharedLibrary library;
        EXPECT_FALSE(library.isLoaded());
        EXPECT_THROW(library.symbol("main"), fn::RuntimeException); // Not the program's own.
        library.load(SAMPLE_LIBRARY, 9);
        EXPECT_TRUE(library.isLoaded());
        countCalls = reinterpret_cast<int (*)()>(library.symbol("countCallsOfSample"));
        EXPECT_EQ(countCalls(), 1);
        EXPECT_THROW(library.symbol("countCallsOfAnother"), fn::RuntimeException);
        EXPECT_THROW(library.load(SAMPLE_LIBRARY), fn::RuntimeException);
        EXPECT_EQ(::dlsym(RTLD_DEFAULT, "countCallsOfSample"), nullptr);
    }
    // Not even closing the handle of that load unloads it.
    void* const handle = ::dlopen(SAMPLE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    ::dlclose(handle);
    ::dlclose(handle);
    EXPECT_EQ(countCalls(), 2);
}

TEST(SharedLibrary, FailsAtOnceWhereSomethingIsMissing)
{
    fn::SharedLibrary library;
    for (const fn::String path : { INCOMPLETE_LIBRARY, "/nowhere/sample.dll" }) {
        try {
            library.load(path);
            FAIL() << path.view();
        } catch (const fn::FileException& e) {
            EXPECT_EQ(*e.find<fn::PathInfo>(), path);
            EXPECT_FALSE(library.isLoaded());
        }
    }
    EXPECT_THROW(library.load(SAMPLE_LIBRARY, 16), fn::RangeException);
}

} // namespace
