// Monotonic readings to ticks: carried remainder, backward clock and impossible elapsed times.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "reltmr/krv_reltmr_clock.h"
#include "support/krv_test_support.h"

using krv::reltmr::KrvPassTickGet;
using krv::reltmr::KrvRelTmrCtrl;

namespace {

TEST(RelTimerClock, CarriesTheRemainderAndRefusesImpossibleTimes)
{
    const uint64_t maxSec = 92233720368547758ULL;  // the last second count whose ticks fit a signed 64-bit number
    const std::string big = std::to_string(static_cast<int>(maxSec + 1));
    const std::string max = std::to_string(static_cast<int>(maxSec));
    // A reading, the ticks it yields, the nanoseconds then carried and the lines of a refusal.
    const std::tuple<uint64_t, uint64_t, uint64_t, uint64_t, std::vector<std::string>> steps[] = {
        {10, 0, 0, 0, {}},  // the first reading is only recorded
        {10, 25000000, 2, 5000000, {}},
        {10, 939999999, 91, 9999999, {}},  // 914999999 ns now + 5 ms carried
        {11, 40000000, 11, 0, {}},  // borrows a second: 100000001 ns plus 9999999 carried
        {11, 39999999, 0, 0,
         {"[MERILUX-KrvRelTmrPassTimeCal]:the new time: senconds 11 nano seconds 39999999 is earlier than the old time "
          ":senconds 11 nano seconds 40000000",
          "[MERILUX-KrvPassTickGet]:Time pass calculate failed."}},
        {11, 50000000, 1, 0, {}},  // measured from the reading kept, not the refused one
        {12 + maxSec, 50000000, 0, 0,
         {"[MERILUX-KrvRelTmrTimeToTick]:the time seconds " + big + " is too big",
          "[MERILUX-KrvPassTickGet]:seconds " + big + " and nano seconds 0 transfer to ticks failed."}},
        {12 + 2 * maxSec, 120000000, 9223372036854775807ULL, 0, {}},  // the largest count that fits
        {12 + 3 * maxSec, 200000000, 0, 0,
         {"[MERILUX-KrvRelTmrTimeToTick]:the time seconds " + max + " and the nanoseconds 80000000 is too big",
          "[MERILUX-KrvPassTickGet]:seconds " + max + " and nano seconds 80000000 transfer to ticks failed."}},
    };
    krvtest::DiagCapture diags;
    KrvRelTmrCtrl ctrl{};
    for (const auto &[sec, nsec, expectedTicks, residual, refusal] : steps) {
        uint64_t ticks = 99;
        EXPECT_EQ(KrvPassTickGet(&ctrl, sec, nsec, &ticks), refusal.empty()) << sec << "." << nsec;
        EXPECT_EQ(ticks, expectedTicks) << sec << "." << nsec;
        EXPECT_EQ(ctrl.residualNs, residual) << sec << "." << nsec;
        std::vector<std::string> msgs;
        for (const krvtest::Diag &d : diags.Take()) {
            EXPECT_TRUE(d.code == 22 && d.level == 2 && d.file == "krv_reltmr") << d.msg;
            msgs.push_back(d.msg);
        }
        EXPECT_EQ(msgs, refusal);
    }
}

}  // namespace
