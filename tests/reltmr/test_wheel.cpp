// The timing wheel driven tick by tick, without a clock or a thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "reltmr/krv_reltmr_wheel.h"

using namespace krv::reltmr;

namespace {

struct Wheel {
    std::vector<KrvRelTmrBucket> buckets = std::vector<KrvRelTmrBucket>(kWheelSize);
    std::vector<KrvRelTmrNode> nodes;
    uint32_t tick;

    explicit Wheel(size_t count, uint32_t startTick = 0) : nodes(count), tick(startTick) { WheelClear(buckets.data()); }
    // Arms node i; a delay up to one revolution (0 counting as 1) goes to the short list of its due bucket.
    void Start(size_t i, uint32_t interval)
    {
        nodes[i].interval = interval;
        WheelInsert(buckets.data(), tick, &nodes[i]);
        uint32_t delay = interval == 0 ? 1 : interval;
        EXPECT_EQ(nodes[i].listKind, delay <= kWheelSize ? kShortList : kLongList) << interval;
        EXPECT_EQ(nodes[i].key & kWheelMask, (tick + delay) & kWheelMask) << interval;
    }
    // Advances by n ticks and returns the indices of the nodes that fell due, in dispatch order.
    std::vector<size_t> Advance(uint32_t n = 1)
    {
        KrvRelTmrNode *expired = nullptr;
        WheelCollect(buckets.data(), tick, tick + n, &expired);
        tick += n;
        std::vector<size_t> due;
        while (KrvRelTmrNode *node = ListPopFront(&expired)) {
            due.push_back(static_cast<size_t>(node - nodes.data()));
        }
        return due;
    }
};

TEST(RelTimerWheel, LongListKeepsDeltasAndOrdersTiesAsEstablished)
{
    const uint32_t r = kWheelSize;
    Wheel w(3);
    w.Start(0, 3 * r + 5);
    w.Start(1, 5 * r + 5);
    w.Start(2, 4 * r + 5);  // walks into the middle
    KrvRelTmrBucket &b = w.buckets[5];
    EXPECT_EQ(std::vector<uint32_t>({w.nodes[0].key, w.nodes[2].key, w.nodes[1].key, b.longLastKey, b.longCount}),
              std::vector<uint32_t>({3 * r + 5, r + 5, r + 5, 5 * r + 5, 3}));
    WheelRemove(w.buckets.data(), &w.nodes[2]);  // the follower inherits its revolution
    EXPECT_EQ(w.nodes[1].key, 2 * r + 5);
    WheelRemove(w.buckets.data(), &w.nodes[1]);  // the tail gives its revolutions back to the last key
    EXPECT_EQ(b.longLastKey, 3 * r + 5);

    // Equal keys: after an equal tail, before an equal middle node, before an equal head.
    Wheel ties(6);
    const uint32_t revs[] = {2, 2, 9, 5, 5, 2};
    for (size_t i = 0; i < 6; ++i) {
        ties.Start(i, revs[i] * r + 7);
    }
    EXPECT_EQ(ties.Advance(9 * r + 7), (std::vector<size_t>{5, 0, 1, 4, 3, 2}));
}

// Every timer expires exactly at its start tick plus its interval, across the wrap of the tick counter,
// among random starts and stops; the interval edges around whole revolutions come up often.
TEST(RelTimerWheel, ExpiresExactlyAfterTheIntervalLikeAReferenceModel)
{
    std::mt19937 rng(12345);
    const size_t count = 3000;
    Wheel w(count, 0xFFFFF800u);
    std::vector<uint64_t> dueAt(count, 0);  // 0: idle; absolute due tick otherwise
    uint64_t now = 0;
    const uint32_t edges[] = {0, 1, 4095, 4096, 4097, 8192, 8193, 12289};
    for (int step = 0; step < 20000; ++step) {
        for (int k = 0; k < 3; ++k) {
            size_t i = rng() % count;
            if (dueAt[i] == 0) {
                uint32_t interval = rng() % 4 == 0 ? edges[rng() % 8] : rng() % 20000;
                w.Start(i, interval);
                dueAt[i] = now + (interval == 0 ? 1 : interval);
            } else if (rng() % 3 == 0) {
                WheelRemove(w.buckets.data(), &w.nodes[i]);
                w.nodes[i].status = KRV_RELTMR_STATUS_IDLE;
                dueAt[i] = 0;
            }
        }
        ++now;
        for (size_t i : w.Advance()) {
            ASSERT_EQ(dueAt[i], now) << "node " << i;
            dueAt[i] = 0;
        }
    }
    // Nothing was lost on the way: every timer still pending falls due within the longest interval.
    EXPECT_EQ(w.Advance(20000).size(), count - std::count(dueAt.begin(), dueAt.end(), 0));
}

}  // namespace
