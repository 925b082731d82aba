// The C library's broken-down time for a date's fields (weekday and day of year left 0), shared by
// the unit tests and the date fuzz target, which compare the library with timegm and asctime_r.
#pragma once

#include <ctime>

#include "krv_time.h"

namespace krvtest {

inline std::tm DateToTm(const KrvDateTime &d)
{
    std::tm tm{};
    tm.tm_year = d.year - 1900;
    tm.tm_mon = d.month - 1;
    tm.tm_mday = d.day;
    tm.tm_hour = d.hour;
    tm.tm_min = d.minute;
    tm.tm_sec = d.second;
    return tm;
}

}  // namespace krvtest
