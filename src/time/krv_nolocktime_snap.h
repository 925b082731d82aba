// The lock-free clock's snapshot: a CPU tick and the local broken-down time taken with it, published
// by one writer into two slots under a sequence counter so that readers never wait.
#ifndef KRV_NOLOCKTIME_SNAP_H
#define KRV_NOLOCKTIME_SNAP_H

#include <atomic>
#include <cstdint>
#include <ctime>

namespace krv::nolocktime {

// Slot 0 holds the newest snapshot, slot 1 the one before it. The sequence is even while slot 0 is
// stable and odd while the writer rewrites it; a reader picks the slot from the sequence's low bit
// and reads again only when the sequence moved meanwhile.
//
// Ordering: every field is an atomic; the writer stores with release and readers load with acquire
// (plain moves on x86). A reader that sees any field of a newer write therefore also sees the
// sequence step made before that write, and retries. Acquire/release on each access rather than
// standalone fences, because ThreadSanitizer models the former only.
class KrvNolockSnapStore {
public:
    // Publishes a snapshot. One writer at a time; readers may run concurrently.
    void Publish(uint64_t tick, const struct tm &local)
    {
        // Slot 1 takes the current snapshot while the sequence is even, so readers sent there by the
        // odd sequence below find it whole. Only this writer stores, so it reads its own slot back freely.
        uint64_t previousTick = 0;
        struct tm previous {};
        Load(slots_[0], &previousTick, &previous);
        Store(slots_[1], previousTick, previous);
        uint32_t seq = seq_.load(std::memory_order_relaxed);
        seq_.store(seq + 1, std::memory_order_release);
        Store(slots_[0], tick, local);
        seq_.store(seq + 2, std::memory_order_release);
    }

    // Reads a consistent tick and the nine broken-down fields (all zero before the first Publish). Never
    // blocks, never writes shared memory; repeats only when a publish began or ended meanwhile.
    void Read(uint64_t *tick, struct tm *local) const
    {
        uint32_t seq = seq_.load(std::memory_order_acquire);
        for (;;) {
            Load(slots_[seq & 1], tick, local);
            uint32_t again = seq_.load(std::memory_order_acquire);
            if (again == seq) {
                return;
            }
            seq = again;
        }
    }

    // Completed publishes times two, plus one while a publish is in progress.
    uint32_t Sequence() const { return seq_.load(std::memory_order_acquire); }

private:
    // The broken-down time in struct tm's fields, each an atomic of its own.
    struct Slot {
        std::atomic<uint64_t> tick{0};
        std::atomic<int> sec{0};
        std::atomic<int> min{0};
        std::atomic<int> hour{0};
        std::atomic<int> mday{0};
        std::atomic<int> mon{0};
        std::atomic<int> year{0};
        std::atomic<int> wday{0};
        std::atomic<int> yday{0};
        std::atomic<int> isdst{0};
    };

    static void Store(Slot &slot, uint64_t tick, const struct tm &local)
    {
        constexpr auto kRelease = std::memory_order_release;
        slot.tick.store(tick, kRelease);
        slot.sec.store(local.tm_sec, kRelease);
        slot.min.store(local.tm_min, kRelease);
        slot.hour.store(local.tm_hour, kRelease);
        slot.mday.store(local.tm_mday, kRelease);
        slot.mon.store(local.tm_mon, kRelease);
        slot.year.store(local.tm_year, kRelease);
        slot.wday.store(local.tm_wday, kRelease);
        slot.yday.store(local.tm_yday, kRelease);
        slot.isdst.store(local.tm_isdst, kRelease);
    }

    static void Load(const Slot &slot, uint64_t *tick, struct tm *local)
    {
        constexpr auto kAcquire = std::memory_order_acquire;
        *tick = slot.tick.load(kAcquire);
        local->tm_sec = slot.sec.load(kAcquire);
        local->tm_min = slot.min.load(kAcquire);
        local->tm_hour = slot.hour.load(kAcquire);
        local->tm_mday = slot.mday.load(kAcquire);
        local->tm_mon = slot.mon.load(kAcquire);
        local->tm_year = slot.year.load(kAcquire);
        local->tm_wday = slot.wday.load(kAcquire);
        local->tm_yday = slot.yday.load(kAcquire);
        local->tm_isdst = slot.isdst.load(kAcquire);
    }

    // The sequence and slot 0 share the first cache line, which is all a reader touches between updates.
    alignas(64) std::atomic<uint32_t> seq_{0};
    Slot slots_[2];
};

}  // namespace krv::nolocktime

#endif  // KRV_NOLOCKTIME_SNAP_H
