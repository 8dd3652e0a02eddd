// Every export called from several threads at once, each on its own
// pictures, gives what one thread gives: the library keeps no state between
// calls. CI runs this under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <thread>

#include "host.h"

namespace {

using host::Image;

TEST(Concurrency, EveryExportFromSeveralThreadsAtOnce) {
    constexpr int kThreads = 4;
    for (const host::Op& op : host::Ops()) {
        const std::vector<double> values = host::ParameterSets(op).front();
        for (int c : {1, 3, 4}) {
            if (!op.Takes(c)) continue;
            std::vector<Image> in, alone, together;
            for (int t = 0; t < kThreads; ++t) {
                in.push_back(host::Pattern(41 + t, 29, c));
                alone.push_back(in.back());
                op.run(in.back(), alone.back(), values);
                together.push_back(in.back());
            }
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
                threads.emplace_back([&, t] { op.run(in[size_t(t)], together[size_t(t)], values); });
            for (std::thread& thread : threads) thread.join();
            for (int t = 0; t < kThreads; ++t)
                EXPECT_EQ(alone[size_t(t)].pixels, together[size_t(t)].pixels) << op.name << " channels " << c << " thread " << t;
        }
    }
}

}  // namespace
