// The timing wheel driven tick by tick, without a clock or a thread.
#include <gtest/gtest.h>

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

    KrvRelTmrNode *Start(size_t i, uint32_t interval)
    {
        nodes[i].interval = interval;
        WheelInsert(buckets.data(), tick, &nodes[i]);
        return &nodes[i];
    }
    // Advances by n ticks and returns the indices of the nodes that fell due, in dispatch order.
    std::vector<size_t> Advance(uint32_t n = 1)
    {
        KrvRelTmrNode *expired = nullptr;
        WheelCollect(buckets.data(), tick, tick + n, &expired);
        tick += n;
        std::vector<size_t> due;
        for (KrvRelTmrNode *node = ListPopFront(&expired); node != nullptr; node = ListPopFront(&expired)) {
            EXPECT_EQ(node->status, KRV_RELTMR_STATUS_TIMEOUT);
            due.push_back(static_cast<size_t>(node - nodes.data()));
        }
        return due;
    }
    // Ticks until node i falls due (alone), or 0 when it does not within limit ticks.
    uint32_t TicksUntilDue(size_t i, uint32_t limit)
    {
        for (uint32_t n = 1; n <= limit; ++n) {
            std::vector<size_t> due = Advance();
            if (!due.empty()) {
                return due == std::vector<size_t>{i} ? n : 0;
            }
        }
        return 0;
    }
};

TEST(RelTimerWheel, ExpiresExactlyAfterTheIntervalInTheRightList)
{
    const uint32_t starts[] = {0, 4095, 0xFFFFFFF0u};  // includes a start just before the tick counter wraps
    const uint32_t intervals[] = {1, 2, 9, 4095, 4096, 4097, 8191, 8192, 8193, 12289};
    for (uint32_t start : starts) {
        for (uint32_t interval : intervals) {
            Wheel w(1, start);
            KrvRelTmrNode *node = w.Start(0, interval);
            EXPECT_EQ(node->status, KRV_RELTMR_STATUS_RUNNING);
            EXPECT_EQ(node->listKind, interval <= 4096 ? kShortList : kLongList) << interval;
            EXPECT_EQ(node->key & kWheelMask, (start + interval) & kWheelMask);
            EXPECT_EQ(w.TicksUntilDue(0, interval + 10), interval) << "start " << start << " interval " << interval;
        }
    }
    Wheel zero(1);
    zero.Start(0, 0);  // an interval of 0 is taken as one tick
    EXPECT_EQ(zero.TicksUntilDue(0, 5), 1u);
    Wheel full(1, 100);
    full.Start(0, 4096);  // lands in the bucket just passed, one revolution away
    EXPECT_EQ(full.buckets[100].shortCount, 1u);
}

TEST(RelTimerWheel, LongListKeepsDeltasAndOrdersTiesAsEstablished)
{
    const uint32_t r = kWheelSize;
    Wheel w(3);
    w.Start(0, 3 * r + 5);
    w.Start(1, 5 * r + 5);
    w.Start(2, 4 * r + 5);  // walks into the middle
    KrvRelTmrBucket &b = w.buckets[5];
    EXPECT_EQ(b.longCount, 3u);
    EXPECT_EQ(b.longLastKey, 5 * r + 5);
    EXPECT_EQ(b.longHead, &w.nodes[0]);
    EXPECT_EQ(w.nodes[0].key, 3 * r + 5);
    EXPECT_EQ(w.nodes[0].next, &w.nodes[2]);
    EXPECT_EQ(w.nodes[2].key, 1 * r + 5);
    EXPECT_EQ(w.nodes[1].key, 1 * r + 5);
    WheelRemove(w.buckets.data(), &w.nodes[2]);  // the follower inherits its revolution
    EXPECT_EQ(w.nodes[1].key, 2 * r + 5);
    WheelRemove(w.buckets.data(), &w.nodes[1]);  // the tail gives its revolutions back to the last key
    EXPECT_EQ(b.longLastKey, 3 * r + 5);
    EXPECT_EQ(b.longCount, 1u);

    // Equal keys: after an equal tail, before an equal head, before an equal middle node.
    Wheel ties(6);
    ties.Start(0, 2 * r + 7);
    ties.Start(1, 2 * r + 7);  // tail tie
    ties.Start(2, 9 * r + 7);
    ties.Start(3, 5 * r + 7);
    ties.Start(4, 5 * r + 7);  // middle tie
    ties.Start(5, 2 * r + 7);  // head tie
    std::vector<size_t> order;
    for (uint32_t n = 0; n < 9 * r + 7; ++n) {
        for (size_t i : ties.Advance()) {
            order.push_back(i);
        }
    }
    EXPECT_EQ(order, (std::vector<size_t>{5, 0, 1, 4, 3, 2}));
}

TEST(RelTimerWheel, RandomStartsAndStopsMatchAReferenceModel)
{
    std::mt19937 rng(12345);
    const size_t count = 3000;
    Wheel w(count, 0xFFFFF800u);
    std::vector<uint64_t> dueAt(count, 0);  // 0: idle; absolute due tick otherwise
    uint64_t now = 1;
    const uint32_t tieIntervals[] = {4096, 4097, 8200, 8200 + 4096, 12000};
    for (int step = 0; step < 20000; ++step) {
        for (int k = 0; k < 3; ++k) {
            size_t i = rng() % count;
            if (dueAt[i] == 0) {
                uint32_t interval = rng() % 4 == 0 ? tieIntervals[rng() % 5] : rng() % 20000;
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
        for (size_t i = 0; i < count; i += 97) {
            ASSERT_TRUE(dueAt[i] == 0 || dueAt[i] > now) << "node " << i << " missed";
        }
    }
}

}  // namespace
