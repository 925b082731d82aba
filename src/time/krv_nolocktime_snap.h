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
        Copy(slots_[1], slots_[0]);
        uint32_t seq = seq_.load(std::memory_order_relaxed);
        seq_.store(seq + 1, std::memory_order_release);
        Store(slots_[0], tick, local);
        seq_.store(seq + 2, std::memory_order_release);
    }

    // Reads a consistent tick and broken-down time (all zero before the first Publish). Never
    // blocks, never writes shared memory; repeats only when a publish began or ended meanwhile.
    void Read(uint64_t *tick, struct tm *local) const
    {
        uint32_t seq = seq_.load(std::memory_order_acquire);
        for (;;) {
            const Slot &slot = slots_[seq & 1];
            *tick = slot.tick.load(std::memory_order_acquire);
            for (int i = 0; i < kFieldCount; ++i) {
                local->*kFields[i] = slot.fields[i].load(std::memory_order_acquire);
            }
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
    // The broken-down fields a slot keeps, in struct tm's order.
    static constexpr int kFieldCount = 9;
    static constexpr int tm::*kFields[kFieldCount] = {&tm::tm_sec,  &tm::tm_min,  &tm::tm_hour,
                                                      &tm::tm_mday, &tm::tm_mon,  &tm::tm_year,
                                                      &tm::tm_wday, &tm::tm_yday, &tm::tm_isdst};

    struct Slot {
        std::atomic<uint64_t> tick{0};
        std::atomic<int> fields[kFieldCount]{};
    };

    static void Store(Slot &slot, uint64_t tick, const struct tm &local)
    {
        slot.tick.store(tick, std::memory_order_release);
        for (int i = 0; i < kFieldCount; ++i) {
            slot.fields[i].store(local.*kFields[i], std::memory_order_release);
        }
    }

    // Only the writer calls this, so its own stores need no ordering to be read back.
    static void Copy(Slot &to, const Slot &from)
    {
        to.tick.store(from.tick.load(std::memory_order_relaxed), std::memory_order_release);
        for (int i = 0; i < kFieldCount; ++i) {
            to.fields[i].store(from.fields[i].load(std::memory_order_relaxed), std::memory_order_release);
        }
    }

    // The sequence and slot 0 share the first cache line, which is all a reader touches between updates.
    alignas(64) std::atomic<uint32_t> seq_{0};
    Slot slots_[2];
};

}  // namespace krv::nolocktime

#endif  // KRV_NOLOCKTIME_SNAP_H
