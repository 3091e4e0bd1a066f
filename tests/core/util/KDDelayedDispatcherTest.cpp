#include "core/util/KDDelayedDispatcher.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Request {
    const void* target;
    const char* selector;
    const void* object;
};

struct CoalesceCase {
    const char* what;
    std::vector<Request> requests;
    std::vector<int> expectedRuns;  // indexes of requests that run, in order
};

int targetA, targetB, objectX, objectY;

class Coalescing : public testing::TestWithParam<CoalesceCase> {};

TEST_P(Coalescing, RunsEachDistinctRequestOnceInOrder)
{
    std::vector<int> runs;
    const auto& requests = GetParam().requests;
    for (size_t i = 0; i < requests.size(); ++i) {
        KDDelayedDispatcher::dispatch(requests[i].target, requests[i].selector, requests[i].object,
                                      [&runs, i] { runs.push_back(int(i)); });
    }
    KDDelayedDispatcher::flush();
    EXPECT_EQ(runs, GetParam().expectedRuns) << GetParam().what;
    EXPECT_EQ(KDDelayedDispatcher::pendingCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Coalescing,
    testing::Values(
        CoalesceCase{"same target, selector, object", {{&targetA, "sel", &objectX}, {&targetA, "sel", &objectX}}, {0}},
        CoalesceCase{"two objects", {{&targetA, "sel", &objectX}, {&targetA, "sel", &objectY}}, {0, 1}},
        CoalesceCase{"no object equals no object", {{&targetA, "sel", nullptr}, {&targetA, "sel", nullptr}}, {0}},
        CoalesceCase{"other target", {{&targetA, "sel", nullptr}, {&targetB, "sel", nullptr}}, {0, 1}},
        CoalesceCase{"other selector",
                     {{&targetA, "one", nullptr}, {&targetA, "two", nullptr}, {&targetA, "one", nullptr}},
                     {0, 1}}));

TEST(KDDelayedDispatcher, CallsQueuedWhileFlushingWaitForTheNextFlush)
{
    int inner = 0;
    KDDelayedDispatcher::dispatch(&targetA, "outer", [&] {
        KDDelayedDispatcher::dispatch(&targetA, "inner", [&] { ++inner; });
    });
    KDDelayedDispatcher::flush();
    EXPECT_EQ(inner, 0);
    KDDelayedDispatcher::flush();
    EXPECT_EQ(inner, 1);
}

TEST(KDDelayedDispatcher, EventLoopFlushesOnItsNextTurn)
{
    int argc = 0;
    QCoreApplication app(argc, nullptr);
    int runs = 0;
    KDDelayedDispatcher::dispatch(&targetB, "later", [&] { ++runs; });
    KDDelayedDispatcher::dispatch(&targetB, "later", [&] { ++runs; });
    EXPECT_EQ(runs, 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(runs, 1);
}

} // namespace
