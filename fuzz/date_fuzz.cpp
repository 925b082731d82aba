// Fuzz target: the date conversions against the C library. Two arbitrary broken-down dates and an
// arbitrary second count are checked, converted both ways, compared and formatted; timegm, gmtime_r
// and asctime_r say what each result must be.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "krv_time.h"
#include "support/krv_date_tm.h"

namespace {

void Check(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

struct Reader {
    const uint8_t *data;
    size_t size;
    template <typename T>
    T Take()
    {
        T value{};
        const size_t n = size < sizeof value ? size : sizeof value;
        std::memcpy(&value, data, n);
        data += n;
        size -= n;
        return value;
    }
};

// Mostly plausible fields, so that valid dates are common; now and then any value at all.
KrvDateTime TakeDate(Reader *in)
{
    const uint8_t wild = in->Take<uint8_t>();
    KrvDateTime d;
    d.year = in->Take<uint16_t>();
    d.month = in->Take<uint8_t>();
    d.day = in->Take<uint8_t>();
    d.hour = in->Take<uint8_t>();
    d.minute = in->Take<uint8_t>();
    d.second = in->Take<uint8_t>();
    d.millisecond = in->Take<uint16_t>();
    d.microsecond = in->Take<uint16_t>();
    if ((wild & 1) == 0) {
        d.year = static_cast<uint16_t>(1960 + d.year % 200);
        d.month %= 14;
        d.day %= 33;
        d.hour %= 25;
        d.minute %= 61;
        d.second %= 61;
        d.millisecond %= 1001;
        d.microsecond %= 1001;
    }
    return d;
}

// The seconds of a valid date as the C library counts them, or -1 for an invalid date.
int64_t ModelUtc(const KrvDateTime &d)
{
    std::tm tm = krvtest::DateToTm(d);
    const std::tm given = tm;
    const time_t t = timegm(&tm);
    const bool same = tm.tm_year == given.tm_year && tm.tm_mon == given.tm_mon && tm.tm_mday == given.tm_mday &&
                      tm.tm_hour == given.tm_hour && tm.tm_min == given.tm_min && tm.tm_sec == given.tm_sec;
    return same && d.year >= 1970 && d.millisecond <= 999 && d.microsecond <= 999 ? t : -1;
}

void CheckDate(const KrvDateTime &d)
{
    const int64_t model = ModelUtc(d);
    Check(KRV_DateTimeCheck(&d) == (model >= 0));
    int64_t utc = 12345;
    Check(KRV_DateToUtcTimeConvert(&d, &utc) == (model >= 0 ? 0u : 1u) && utc == (model >= 0 ? model : 12345));

    char text[KRV_DATE_STR_LEN + 8];
    std::memset(text, '#', sizeof text);
    std::tm tm = krvtest::DateToTm(d);  // weekday 0: always printed as Sunday
    char expected[64];
    const bool printable = model >= 0 && asctime_r(&tm, expected) != nullptr;
    Check(KRV_DateToStrConvert(&d, text) == (printable ? 0u : 1u));
    Check(printable ? std::strcmp(text, expected) == 0 : text[0] == '#');
    Check(text[KRV_DATE_STR_LEN] == '#');
}

void CheckBreakdown(int64_t utc)
{
    KrvDateTime d;
    std::memset(&d, 0xA5, sizeof d);
    const KrvDateTime untouched = d;
    std::tm tm{};
    const time_t t = static_cast<time_t>(utc);
    const bool fits = utc <= KRV_UTC_TIME_MAX && gmtime_r(&t, &tm) != nullptr && tm.tm_year >= -1900 &&
                      tm.tm_year <= 65535 - 1900;
    const uint32_t rc = KRV_UtcTimeToDateConvert(utc, &d);
    if (!fits) {
        Check(rc == 22 && std::memcmp(&d, &untouched, sizeof d) == 0);
        return;
    }
    Check(rc == 0 && d.year == tm.tm_year + 1900 && d.month == tm.tm_mon + 1 && d.day == tm.tm_mday &&
          d.hour == tm.tm_hour && d.minute == tm.tm_min && d.second == tm.tm_sec && d.millisecond == 0 &&
          d.microsecond == 0);
    int64_t back = 0;
    Check(utc >= 0 ? KRV_DateToUtcTimeConvert(&d, &back) == 0 && back == utc : !KRV_DateTimeCheck(&d));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Reader in{data, size};
    const KrvDateTime a = TakeDate(&in);
    const KrvDateTime b = TakeDate(&in);
    const int64_t raw = in.Take<int64_t>();
    CheckDate(a);
    CheckDate(b);
    // Near the range's ends or anywhere.
    CheckBreakdown(raw % 4 == 0 ? raw : raw % 3 == 0 ? KRV_UTC_TIME_MAX - raw % 1000 : raw % (KRV_UTC_TIME_MAX + 2));

    const int64_t ma = ModelUtc(a), mb = ModelUtc(b);
    int64_t diff = 777;
    const uint32_t cmp = KRV_DateTimeCompare(&a, &b, &diff);
    if (ma < 0 || mb < 0) {
        Check(cmp == KRV_DATE_CMP_FAILED && diff == 777);
    } else {
        Check(diff == ma - mb && cmp == (ma == mb   ? KRV_DATE_CMP_EQUAL
                                         : ma < mb ? KRV_DATE_CMP_EARLIER
                                                   : KRV_DATE_CMP_LATER));
    }
    return 0;
}
