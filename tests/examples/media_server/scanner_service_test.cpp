// The scanner between a library and an observer that the test answers for. What can break here: a scanner that runs away from
// them, or that goes on when nobody wants it to.
#include "api/scanner.h"
#include "scanner/scanner_service.h"
#include "support/temporary_folder.h"
#include "support/worker.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace media {
namespace {

/// A service shared as R.
template <typename R> class ServiceAs final : public test::Service {
public:
    using Service::Service;

    int count(const fn::String& method) const
    {
        return static_cast<int>(std::ranges::count(calls, method, &Call::name));
    }

    void answerAll(const fn::String& method, const fn::Value& result)
    {
        for (auto& call : std::exchange(calls, {})) {
            if (call.name == method) sendResult(call.context, result);
        }
    }

private:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<R>(initializer);
    }
};

class ScannerServiceTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 160; ++i) test::writeFile(folder.file(std::to_string(i)), "1");
        dispatcher.bind();
        dispatcher.start();
        user = std::make_unique<test::Client>(loop, dispatcher.pipePath());
        host = std::make_unique<test::Client>(loop, dispatcher.pipePath());
        ASSERT_TRUE(test::runUntil(loop, [&] { return user->isConnected() && host->isConnected(); }));
        host->worker->registerObjectReferenceClass<Library>();
        host->worker->registerObjectReferenceClass<ScanObserver>();
        user->worker->registerObjectReferenceClass<Scanner>();
        library = fn::makeAuto<ServiceAs<Library>>(*user->worker);
        observer = fn::makeAuto<ServiceAs<ScanObserver>>(*user->worker);
        loop.post([&] { host->worker->registry()->registerObject(fn::makeAuto<ScannerService>(*host->worker), 0); });
        scanner = test::findInstance<Scanner>(loop, *user->worker);
        ASSERT_TRUE(scanner);
    }

    void TearDown() override
    {
        scanner.reset();
        user.reset();
        host.reset();
        dispatcher.stop(fn::Duration(), {});
        loop.run();
    }

    fn::Promise<fn::Value> scan()
    {
        fn::Promise<fn::Value> result;
        loop.post([&] {
            result = scanner
                         ->scan(folder.path().string(), { 1, 1 }, fn::dynamicCast<Library>(library->localReference()),
                             observer)
                         .then([](PathSample&& unreadable) { return unreadable.toValue(); });
        });
        test::runUntil(loop, [&] { return static_cast<bool>(result); });
        return result;
    }

    bool awaitComparisons(int number)
    {
        const bool come = test::runUntil(loop, [&] { return library->count("compare") == number; });
        settle();
        return come && library->count("compare") == number;
    }

    /// Lets everything happen that would happen without an answer.
    void settle() { test::runTurns(loop, 100); }

    test::TemporaryFolder folder;
    fn::uv::Loop loop;
    ipc::Dispatcher dispatcher { loop, fn::Duration::seconds(30) };
    std::unique_ptr<test::Client> user;
    std::unique_ptr<test::Client> host;
    fn::AutoPtr<ServiceAs<Library>> library;
    fn::AutoPtr<ServiceAs<ScanObserver>> observer;
    fn::AutoPtr<Scanner> scanner;
};

TEST_F(ScannerServiceTest, FourBatchesAreUnderWayUntilTheLastOneInTheRowHasAnswered)
{
    const auto result = scan();
    ASSERT_TRUE(awaitComparisons(4));

    library->answerAll("compare", fn::Value::array({ 0, 9 })); // Two of ten are to be read.
    ASSERT_TRUE(test::runUntil(loop, [&] { return library->count("store") == 4; }));
    EXPECT_EQ(library->calls.front().argument.get("files").size(), 2U);
    ASSERT_TRUE(awaitComparisons(0));

    observer->answerAll("progress", {}); // What it was told of the walk.
    library->answerAll("store", {});
    ASSERT_TRUE(test::runUntil(loop, [&] { return observer->count("progress") == 4; }));
    EXPECT_EQ(ScanProgress::fromValue(observer->calls.back().argument).done, 40);
    ASSERT_TRUE(awaitComparisons(0));

    observer->answerAll("progress", {});
    EXPECT_TRUE(awaitComparisons(4));
    EXPECT_TRUE(result.isPending());
}

TEST_F(ScannerServiceTest, ACancelledScanSendsNothingMoreAndMakesRoomForTheNext)
{
    const auto first = scan();
    ASSERT_TRUE(awaitComparisons(4));
    test::Outcome refused;
    const auto meanwhile = scan();
    loop.post([&] { refused.observe(meanwhile); });
    ASSERT_TRUE(test::runUntil(loop, [&] { return refused.isOver(); }));
    EXPECT_EQ(refused.error(), "RuntimeException: Another folder is being scanned");

    loop.post([&] { first.cancel(); });
    settle();
    library->answerAll("compare", fn::Value::array({ 0 }));
    settle();
    EXPECT_TRUE(library->calls.empty());

    const auto second = scan();
    EXPECT_TRUE(awaitComparisons(4));
    EXPECT_TRUE(second.isPending());
}

} // namespace
} // namespace media
