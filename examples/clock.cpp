// The lock-free clock and calendar time. KRV_LmtTimeGetNoLock reads the local time to the
// millisecond without a lock or a system call: an updater thread takes a snapshot of the local time
// and the CPU tick every 5 seconds, and readers add the ticks elapsed since.
#include <cstdio>
#include <thread>
#include <vector>

#include "krv.h"

namespace {

int Fail(const char *what, uint32_t rc)
{
    std::printf("FAILED: %s (status %u)\n", what, rc);
    return 1;
}

}  // namespace

int main()
{
    // Calibrates the CPU tick (from /proc/cpuinfo, else by a one-second alarm) and starts the updater.
    uint32_t rc = KRV_NolockTimeInit();
    if (rc != KRV_OK) {
        return Fail("KRV_NolockTimeInit", rc);
    }

    // Any number of threads may read at once; readers never wait for the updater.
    std::vector<KrvDateTime> seen(4);
    std::vector<std::thread> readers;
    for (KrvDateTime &date : seen) {
        readers.emplace_back([&date] { KRV_LmtTimeGetNoLock(&date); });
    }
    for (std::thread &reader : readers) {
        reader.join();
    }
    KrvDateTime now = {};
    if ((rc = KRV_LmtTimeGetNoLock(&now)) != KRV_OK) {
        return Fail("KRV_LmtTimeGetNoLock", rc);
    }
    std::printf("lock-free local time %04u-%02u-%02u %02u:%02u:%02u.%03u\n", now.year, now.month, now.day, now.hour,
                now.minute, now.second, static_cast<unsigned>(now.millisecond));

    // The calendar functions take a date as UTC, and check it first.
    KrvDateTime leap = {2024, 2, 29, 12, 0, 0, 0, 0};
    KrvDateTime invalid = {2023, 2, 29, 12, 0, 0, 0, 0};
    int64_t utc = 0;
    if ((rc = KRV_DateToUtcTimeConvert(&leap, &utc)) != KRV_OK || utc != 1709208000 || KRV_DateTimeCheck(&invalid)) {
        return Fail("calendar", rc);
    }
    KrvDateTime back = {};
    int64_t diff = 0;
    if (KRV_UtcTimeToDateConvert(utc + 86400, &back) != KRV_OK ||
        KRV_DateTimeCompare(&leap, &back, &diff) != KRV_DATE_CMP_EARLIER || diff != -86400) {
        return Fail("conversion", 0);
    }
    std::printf("a day after 2024-02-29 12:00 UTC is %04u-%02u-%02u\n", back.year, back.month, back.day);

    // The last fini joins the updater, which only notices at the end of its 5-second sleep: this
    // call can take up to 5 seconds. Nobody may read the clock meanwhile.
    KRV_NolockTimeFini();
    return back.month == 3 && back.day == 1 ? 0 : Fail("date", 0);
}
