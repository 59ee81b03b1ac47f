// The opt-in progress callback: a host that never sets it sees nothing change, one that lets
// every call go on gets the same results and rand() draws, and a stop request ends the call with
// StatusStopped in each insertion loop (sorted, shuffled, shuffled with the helper thread) and in
// the constraint phase, also at a phase's last report. On Linux, the reports also count the
// process's threads: RYTRI_THREADS=1 keeps every call on one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#ifdef __linux__
#include <dirent.h>
#include <sched.h>
#endif

#include "RyTriangulation.h"
#include "support/TestSupport.h"

namespace {

struct Calls {
    long long stopAt = -1;  ///< stop at the first report with done >= stopAt in `phase`
    PkProgressPhase phase = kProgressVertices;
    long long reports[2] = {0, 0};
    long long last = -1;
};

bool onProgress(void* context, PkProgressPhase phase, long long done, long long total) {
    Calls& c = *static_cast<Calls*>(context);
    ++c.reports[phase];
    EXPECT_LE(done, total);
    c.last = done;
    return !(c.stopAt >= 0 && phase == c.phase && done >= c.stopAt);
}

struct Outcome {
    PkTriangulationStatus status;
    std::vector<PkMeshTriangle> triangles;
    int nextRand;
};

Outcome triangulate(const std::vector<PkGePoint3d>& points, bool sorted, Calls* calls) {
    std::srand(7);
    RyTriangulation tri(sorted, true);
    if (calls) tri.setProgressCallback(onProgress, calls);
    const std::vector<PkMeshEdge> edges = {{0, 1}, {1, 2}, {2, 3}};
    Outcome run{tri.delaunayTriangulationWithConstraints(points, edges), {}, std::rand()};
    tri.deleteGhostTriangle();
    run.triangles = tri.getMeshTriangles();
    return run;
}

TEST(Progress, GoingOnChangesNothingAndStoppingStopsEachLoop) {
    for (int n : {5000, 40000}) {  // 40000: the helper thread runs ahead
        const std::vector<PkGePoint3d> points = rytest::uniformPoints(n, 11);
        for (bool sorted : {true, false}) {
            const Outcome plain = triangulate(points, sorted, nullptr);
            Calls calls;
            const Outcome watched = triangulate(points, sorted, &calls);
            ASSERT_EQ(plain.status, StatusOk);
            EXPECT_EQ(watched.status, StatusOk);
            EXPECT_EQ(watched.nextRand, plain.nextRand);
            ASSERT_EQ(watched.triangles.size(), plain.triangles.size());
            for (std::size_t t = 0; t < plain.triangles.size(); ++t) {
                for (int k = 0; k < 3; ++k) {
                    EXPECT_EQ(watched.triangles[t].getVertexIndexAt(k),
                              plain.triangles[t].getVertexIndexAt(k));
                }
            }
            EXPECT_EQ(calls.reports[kProgressVertices], 2 + (n - 1) / 4096);
            EXPECT_EQ(calls.reports[kProgressConstraints], 2);

            Calls stop;
            stop.stopAt = 4096;
            const Outcome stopped = triangulate(points, sorted, &stop);
            EXPECT_EQ(stopped.status, StatusStopped);
            EXPECT_EQ(stop.last, 4096);
            EXPECT_GT(stopped.triangles.size(), 0u);  // the vertices inserted so far stay
            EXPECT_LT(stopped.triangles.size(), plain.triangles.size());
            // At the first constraint report, and at the last report of each phase.
            for (const long long at : {0LL, 3LL, -1LL}) {
                stop = Calls();
                stop.stopAt = at < 0 ? n : at;
                stop.phase = at < 0 ? kProgressVertices : kProgressConstraints;
                EXPECT_EQ(triangulate(points, sorted, &stop).status, StatusStopped) << at;
            }
        }
    }
}

#ifdef __linux__
int threadsNow() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/task")) {
        while (const dirent* e = readdir(d)) n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

bool countThreads(void* context, PkProgressPhase, long long, long long) {
    int& most = *static_cast<int*>(context);
    most = std::max(most, threadsNow());
    return true;
}

/// Exits with the most threads this process had at the progress reports of a shuffled
/// triangulation large enough for the helper thread, RYTRI_THREADS set as given first.
[[noreturn]] void exitWithThreadsSeen(const char* setting) {
    if (setting)
        setenv("RYTRI_THREADS", setting, 1);
    else
        unsetenv("RYTRI_THREADS");
    int most = 0;
    {
        RyTriangulation tri(false, true);
        tri.setProgressCallback(countThreads, &most);
        if (tri.delaunayTriangulation(rytest::uniformPoints(100000, 3)) != StatusOk) most = 100;
    }
    std::exit(most);
}

// The setting is read once per process: each case runs in a freshly started one.
TEST(Progress, RytriThreadsOneKeepsEveryCallOnTheCallersThread) {
    const std::string style = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exitWithThreadsSeen("1"), testing::ExitedWithCode(1), "");
    cpu_set_t cores;
    if (sched_getaffinity(0, sizeof cores, &cores) == 0 && CPU_COUNT(&cores) > 1) {
        // Where the helper can run, the count sees it.
        EXPECT_EXIT(exitWithThreadsSeen(nullptr), testing::ExitedWithCode(2), "");
        EXPECT_EXIT(exitWithThreadsSeen("2"), testing::ExitedWithCode(2), "");
    }
    GTEST_FLAG_SET(death_test_style, style);
}
#endif

}  // namespace
