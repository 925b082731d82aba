// Monotonic readings to ticks: carried remainder, backward clock and impossible elapsed times.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reltmr/krv_reltmr_clock.h"
#include "support/krv_test_support.h"

using krv::reltmr::KrvPassTickGet;
using krv::reltmr::KrvRelTmrCtrl;

namespace {

uint64_t Ticks(KrvRelTmrCtrl &ctrl, uint64_t sec, uint64_t nsec)
{
    uint64_t ticks = 99;
    EXPECT_TRUE(KrvPassTickGet(&ctrl, sec, nsec, &ticks)) << sec << "." << nsec;
    return ticks;
}

TEST(RelTimerClock, CarriesTheRemainderBetweenReadings)
{
    KrvRelTmrCtrl ctrl{};
    EXPECT_EQ(Ticks(ctrl, 10, 0), 0u);  // the first reading is only recorded
    EXPECT_EQ(Ticks(ctrl, 10, 25000000), 2u);
    EXPECT_EQ(ctrl.residualNs, 5000000u);
    EXPECT_EQ(Ticks(ctrl, 10, 30000000), 1u);  // 5 ms now + 5 ms carried
    EXPECT_EQ(Ticks(ctrl, 10, 939999999), 90u);
    EXPECT_EQ(Ticks(ctrl, 11, 40000000), 11u);  // borrows a second: 100000001 ns plus 9999999 carried
    EXPECT_EQ(ctrl.residualNs, 0u);
    EXPECT_EQ(Ticks(ctrl, 14, 40000000), 300u);
}

TEST(RelTimerClock, RefusesBackwardAndImpossibleTimesWithoutMoving)
{
    krvtest::DiagCapture diags;
    KrvRelTmrCtrl ctrl{};
    Ticks(ctrl, 20, 500);
    uint64_t ticks = 0;
    EXPECT_FALSE(KrvPassTickGet(&ctrl, 20, 400, &ticks));
    EXPECT_EQ(ticks, 0u);
    std::vector<krvtest::Diag> got = diags.Take();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].msg,
              "[MERILUX-KrvRelTmrPassTimeCal]:the new time: senconds 20 nano seconds 400 is earlier than the old time "
              ":senconds 20 nano seconds 500");
    EXPECT_EQ(got[1].msg, "[MERILUX-KrvPassTickGet]:Time pass calculate failed.");
    EXPECT_EQ(got[0].code, 22u);
    EXPECT_EQ(got[1].file, "krv_reltmr");
    EXPECT_EQ(Ticks(ctrl, 20, 10000500), 1u);  // measured from the reading kept, not the refused one

    const uint64_t maxSec = 92233720368547758ULL;
    uint64_t base = ctrl.lastSec;
    EXPECT_FALSE(KrvPassTickGet(&ctrl, base + maxSec + 1, 10000500, &ticks));
    std::string tooBig = std::to_string(static_cast<int>(maxSec + 1));
    EXPECT_EQ(diags.Messages(), (std::vector<std::string>{
                                    "[MERILUX-KrvRelTmrTimeToTick]:the time seconds " + tooBig + " is too big",
                                    "[MERILUX-KrvPassTickGet]:seconds " + tooBig + " and nano seconds 0 transfer to ticks failed.",
                                }));

    KrvRelTmrCtrl edge{};
    Ticks(edge, 1, 0);
    EXPECT_EQ(Ticks(edge, 1 + maxSec, 70000000), 9223372036854775807ULL);  // the largest count that fits
    KrvRelTmrCtrl over{};
    Ticks(over, 1, 0);
    EXPECT_FALSE(KrvPassTickGet(&over, 1 + maxSec, 80000000, &ticks));
    std::string sec = std::to_string(static_cast<int>(maxSec));
    EXPECT_EQ(diags.Messages(),
              (std::vector<std::string>{
                  "[MERILUX-KrvRelTmrTimeToTick]:the time seconds " + sec + " and the nanoseconds 80000000 is too big",
                  "[MERILUX-KrvPassTickGet]:seconds " + sec + " and nano seconds 80000000 transfer to ticks failed.",
              }));
    EXPECT_EQ(over.residualNs, 0u);
}

}  // namespace
