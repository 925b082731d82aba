// Every init and create path of the library, driven through each of its allocations refused in turn
// (and its thread start refused, where it starts one). Each refusal must give the documented status
// and leave no half-built module: the next attempt with memory available succeeds and the module
// works. Leaks show up in the AddressSanitizer tree, whose leak checker runs when the binary ends.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "hok_log.h"
#include "krv_array.h"
#include "krv_base64.h"
#include "krv_cputick.h"
#include "krv_hash.h"
#include "krv_json.h"
#include "krv_log_ops.h"
#include "krv_mempool.h"
#include "krv_nolocktime.h"
#include "krv_osal.h"
#include "krv_osaleno.h"
#include "krv_reltmr.h"
#include "krv_tick.h"
#include "support/krv_json_dump.h"
#include "support/krv_test_support.h"

namespace {

namespace fs = std::filesystem;
using Codes = std::set<uint32_t>;

// Runs attempt() with its n-th allocation refused, for n = 0, 1, ... until an attempt refuses none,
// and hands each status to check(status, n). Each n runs twice: with that one allocation refused,
// then with it and every later one refused, so that the cleanup after a failure is tried without
// memory too. Returns the number of allocations the attempt makes.
unsigned SweepAllocations(const std::function<uint32_t()> &attempt, const std::function<void(uint32_t, unsigned)> &check)
{
    for (unsigned n = 0;; ++n) {
        for (unsigned count : {1u, ~0u}) {
            uint32_t rc;
            unsigned refused;
            {
                krvtest::AllocFailure fail(n, count);
                rc = attempt();
                refused = fail.Failed();
            }
            check(rc, n);
            if (refused == 0) {
                return n;
            }
        }
    }
}

void Ignore(uint32_t, uint32_t, const char *, uint32_t, const char *) {}

// Keeps the modules' diagnostics off standard output with a hook that allocates nothing, so it can
// run while allocations are being refused.
struct Quiet {
    Quiet() { EXPECT_EQ(KRV_LogHookReg(Ignore), 0u); }
    ~Quiet() { KRV_LogHookUnReg(); }
};

// --- timers ---

std::atomic<int> g_fired{0};
void Fire(uint64_t, uint32_t) { ++g_fired; }

// A pool can run a timer to its callback.
void ExpectTimerFires(KrvRelTmrPool *pool)
{
    const int before = g_fired;
    const KrvRelTmrFuncInfo info = {Fire, 0, 0};
    ASSERT_EQ(KRV_CallBackRelTimerStart(nullptr, pool, 10, KRV_RELTMR_MODE_ONESHOT, &info), 0u);
    EXPECT_TRUE(krvtest::WaitFor([before] { return g_fired > before; }));
}

TEST(InitFailures, RelativeTimerModulePoolAndGroup)
{
    Quiet quiet;
    const size_t threads = krvtest::SettledThreadCount();
    // The first pool creates the module and its trigger thread.
    auto firstPool = [&](uint32_t rc, unsigned n) {
        static KrvRelTmrPool *pool;
        SCOPED_TRACE(n);
        if (rc == 0) {
            return;
        }
        EXPECT_TRUE(rc == KRV_ERR_NOMEM || rc == KRV_ERR_FAILED) << rc;
        EXPECT_TRUE(krvtest::WaitFor([threads] { return krvtest::ThreadCount() == threads; }));
        pool = nullptr;
        ASSERT_EQ(KRV_RelTimerInit(4, &pool), 0u);
        ExpectTimerFires(pool);
        EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
    };
    {
        krvtest::ThreadFailure refuse(0, 1);
        KrvRelTmrPool *refused = nullptr;
        const uint32_t rc = KRV_RelTimerInit(4, &refused);
        EXPECT_EQ(rc, KRV_ERR_FAILED);
        firstPool(rc, 0);
        EXPECT_EQ(refused, nullptr);
    }
    KrvRelTmrPool *pool = nullptr;
    SweepAllocations([&] { return KRV_RelTimerInit(4, &pool); }, firstPool);
    ExpectTimerFires(pool);

    // Further pools and groups on a running module.
    KrvRelTmrPool *second = nullptr;
    SweepAllocations([&] { return KRV_RelTimerInit(2, &second); }, [&](uint32_t rc, unsigned n) {
        EXPECT_TRUE(rc == 0 || (rc == KRV_ERR_NOMEM && second == nullptr)) << n << ": " << rc;
    });
    ExpectTimerFires(second);
    KrvRelTmrGrpInfo *grp = nullptr;
    SweepAllocations([&] { return KRV_RelTimerGrpCreate(&grp, second, 3, Fire); }, [&](uint32_t rc, unsigned n) {
        EXPECT_TRUE(rc == 0 || (rc == KRV_ERR_NOMEM && grp == nullptr)) << n << ": " << rc;
    });
    ASSERT_NE(grp, nullptr);
    const int before = g_fired;
    EXPECT_EQ(KRV_RelTimerofGrpStart(grp, 2, 10, 0, KRV_RELTMR_MODE_ONESHOT), 0u);
    EXPECT_TRUE(krvtest::WaitFor([before] { return g_fired > before; }));
    EXPECT_EQ(second->grpCount, 1u) << "a refused group is not counted";
    EXPECT_EQ(KRV_RelTimerGrpFree(grp), 0u);
    EXPECT_EQ(KRV_RelTimerFini(second), 0u);
    EXPECT_EQ(KRV_RelTimerFini(pool), 0u);
    EXPECT_TRUE(krvtest::WaitFor([threads] { return krvtest::ThreadCount() == threads; }));
}

// --- log backend and logging lifecycle ---

KrvLogOpsCfg FileCfg(const std::string &dir)
{
    KrvLogOpsCfg cfg = {"fault", dir.c_str(), KRV_LOG_MODE_FILE | KRV_LOG_MODE_MODULE, 30000, 2};
    return cfg;
}

// The backend is up and writes a line into its ring under dir.
void ExpectBackendWrites(const std::string &dir, int n)
{
    const std::string line = "written " + std::to_string(n);
    KRV_LogWrite(1, 2, "fault", 7, "%s", line.c_str());
    EXPECT_EQ(KRV_LogOpsFlush(10000), 0u);
    EXPECT_NE(krvtest::ReadAll(dir).find(line + "\n"), std::string::npos) << line;
}

TEST(InitFailures, LogBackendInEmptyAndPopulatedDirectories)
{
    for (int populated = 0; populated < 2; ++populated) {
        krvtest::TempDir tmp;
        const std::string app = tmp.Path() + "/fault";
        // Every start sees the same directory: none, or an earlier run's ring, which it scans and
        // whose newest file it reopens.
        auto reset = [&] {
            fs::remove_all(app);
            if (populated != 0) {
                fs::create_directory(app);
                for (const char *name : {"fault_1.log", "fault_2.log", "fault_3.log", "fault_4.log"}) {
                    std::ofstream(app + "/" + name) << "old\n";
                }
            }
        };
        reset();
        const KrvLogOpsCfg cfg = FileCfg(tmp.Path());
        const size_t threads = krvtest::SettledThreadCount();
        krvtest::StdoutCapture quiet;
        const unsigned points = SweepAllocations([&] { return KRV_LogOpsInit(&cfg); }, [&](uint32_t rc, unsigned n) {
            SCOPED_TRACE(n);
            if (rc != 0) {
                EXPECT_TRUE(rc == KRV_ERR_NOMEM || rc == KRV_ERR_FAILED) << rc;
                EXPECT_EQ(krvtest::ThreadCount(), threads);
                EXPECT_EQ(KRV_LogOpsReg("m", Ignore), KRV_ERR_NOT_INIT) << "no half-built backend";
                ASSERT_EQ(KRV_LogOpsInit(&cfg), 0u);
            }
            ExpectBackendWrites(app, static_cast<int>(n));
            KRV_LogOpsFini();
            krvtest::CloseFilesUnder(tmp.Path());  // the backend leaves its current file open
            reset();
        });
        EXPECT_GT(points, 4u);
        {
            krvtest::ThreadFailure refuse(0, 1);
            EXPECT_EQ(KRV_LogOpsInit(&cfg), KRV_ERR_FAILED);
        }
        krvtest::CloseFilesUnder(tmp.Path());
        ASSERT_EQ(KRV_LogOpsInit(&cfg), 0u);
        ExpectBackendWrites(app, -1);
        KRV_LogOpsFini();
        krvtest::CloseFilesUnder(tmp.Path());
        EXPECT_TRUE(krvtest::WaitFor([threads] { return krvtest::ThreadCount() == threads; }));
    }
}

TEST(InitFailures, LoggingLifecycle)
{
    krvtest::TempDir tmp;
    krvtest::StdoutCapture quiet;
    auto works = [&](unsigned n) {
        ASSERT_TRUE(Hok::Log::IsLogInited());
        Hok::Log::Logger *logger = Hok::Log::CreateLogger("fault", "sweep");
        ASSERT_NE(logger, nullptr);
        logger->LogError("fault.cpp", 1) << "line " << n;
        EXPECT_EQ(KRV_LogOpsFlush(10000), 0u);
        EXPECT_NE(krvtest::ReadAll(tmp.Path()).find("line " + std::to_string(n) + "\n"), std::string::npos);
        logger->Destroy();
        Hok::Log::FiniLogging();
        EXPECT_FALSE(Hok::Log::IsLogInited());
        krvtest::CloseFilesUnder(tmp.Path());
        fs::remove_all(tmp.Path() + "/fault");  // every start sees the same empty directory
    };
    auto init = [&] {
        Hok::Log::InitLogging("fault", tmp.Path(), 30000, Hok::Log::LOG_LEVEL_ERROR, Hok::Log::LOG_MODE_FILE);
    };
    SweepAllocations([&] { return init(), Hok::Log::IsLogInited() ? 0u : 1u; }, [&](uint32_t rc, unsigned n) {
        if (rc != 0) {
            init();
        }
        works(n);
    });
}

// Logger creation is a no-throw boundary: running out of memory for its texts ends the process.
TEST(InitFailuresDeathTest, LoggerCreationWithoutMemoryEndsTheProcess)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' operator new does not pass through the interposed malloc";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            krvtest::AllocFailure fail(0);
            Hok::Log::CreateLogger("fault", "no memory");
        },
        "");
}

// --- memory pools, system tick, lock-free time ---

TEST(InitFailures, MemoryPoolsAndTheSystemTick)
{
    Quiet quiet;
    // Refusals inside the tick come back as its codes: 12, or 22 from the sleep registry.
    const Codes initCodes = {KRV_ERR_NOMEM, KRV_ERR_INVALID, KRV_ERR_FAILED};
    SweepAllocations(KRV_TickInit, [&](uint32_t rc, unsigned n) {
        SCOPED_TRACE(n);
        if (rc != 0) {
            EXPECT_EQ(initCodes.count(rc), 1u) << rc;
            ASSERT_EQ(KRV_TickInit(), 0u);
        }
        uint64_t first = 0, second = 0;
        EXPECT_EQ(KRV_TickGet(&first), 0u);
        EXPECT_EQ(KRV_TickGet(&second), 0u);
        EXPECT_LE(first, second);
        KRV_TickFini();
    });

    alignas(8) static uint8_t region[64 * 100];
    auto pools = [&](uint32_t rc, unsigned n) {
        SCOPED_TRACE(n);
        if (rc != 0) {
            EXPECT_EQ(initCodes.count(rc), 1u) << rc;
            EXPECT_EQ(KRV_MemPoolCreate("p", region, sizeof region, 64, nullptr), KRV_ERR_NOT_INIT);
            ASSERT_EQ(KRV_MemPoolInit(), 0u);
        }
        // A refused table leaves no descriptor: the same name and region are taken on the next try.
        uint32_t id = 99;
        const unsigned tablePoints = SweepAllocations(
            [&] { return KRV_MemPoolCreate("p", region, sizeof region, 64, &id); },
            [&](uint32_t createRc, unsigned) { EXPECT_TRUE(createRc == 0 || createRc == KRV_ERR_NOMEM) << createRc; });
        EXPECT_EQ(tablePoints, 1u);
        EXPECT_EQ(id, 0u);
        void *unit = KRV_MemPoolAlloc(id);
        EXPECT_NE(unit, nullptr);
        EXPECT_EQ(KRV_MemPoolFree(id, unit), 0u);
        EXPECT_EQ(KRV_MemUnUsedUnitGet(id), 100u);
        EXPECT_EQ(KRV_MemPoolFini(), 0u);
    };
    SweepAllocations(KRV_MemPoolInit, pools);
}

TEST(InitFailures, LockFreeTime)
{
    Quiet quiet;
    const size_t threads = krvtest::SettledThreadCount();
    KrvDateTime date{};
    uint32_t base = 0;
    auto works = [&] {
        EXPECT_EQ(KRV_LmtTimeGetNoLock(&date), 0u);
        EXPECT_TRUE(date.year >= 2024 && date.month >= 1 && date.month <= 12);
        KRV_NolockTimeFini();
        EXPECT_EQ(KRV_LmtTimeGetNoLock(&date), KRV_ERR_NOT_INIT);
        EXPECT_EQ(KRV_CpuTickBaseGet(&base), KRV_ERR_NOT_INIT) << "the CPU tick is released with the clock";
        EXPECT_TRUE(krvtest::WaitFor([threads] { return krvtest::ThreadCount() == threads; }));
    };
    auto check = [&](uint32_t rc, unsigned n) {
        SCOPED_TRACE(n);
        if (rc != 0) {
            EXPECT_TRUE(rc == KRV_ERR_NOMEM || rc == KRV_ERR_FAILED) << rc;
            EXPECT_EQ(KRV_CpuTickBaseGet(&base), KRV_ERR_NOT_INIT) << "a refused start releases the CPU tick";
            EXPECT_EQ(krvtest::ThreadCount(), threads);
            ASSERT_EQ(KRV_NolockTimeInit(), 0u);
        }
        works();
    };
    SweepAllocations(KRV_NolockTimeInit, check);
    krvtest::ThreadFailure refuse(0, 1);
    const uint32_t rc = KRV_NolockTimeInit();
    EXPECT_EQ(rc, KRV_ERR_FAILED);
    check(rc, 0);
}

// --- error stack ---

TEST(InitFailures, ErrorStackPushOnAThreadWithoutAStack)
{
    Quiet quiet;
    ASSERT_EQ(KRV_EnoErrCodeInit(), 0u);
    // A thread's first push creates its record and node; whatever is refused, the thread still gets
    // a working stack with a later push, and removing it frees everything.
    for (unsigned n = 0; n < 3; ++n) {
        std::thread([n] {
            {
                krvtest::AllocFailure fail(n, 1);
                KRV_EnoErrorWrapperPush(0x2130, 16, 5);
            }
            KRV_EnoErrorWrapperPush(0x2130, 16, 6);
            EXPECT_EQ(KRV_EnoLastErrorGet(), 0x21301006u) << n;
            KRV_EnoErrorStackRemove(false);
            const uint32_t gone = KRV_EnoLastErrorGet();
            EXPECT_TRUE(gone == 0 || gone == 255) << "no node is left for the thread: " << gone;
        }).join();
    }
    KRV_EnoErrorStackRemove(true);
    EXPECT_EQ(KRV_EnoErrCodeDeInit(), 0u);
}

// --- data utilities ---

uint64_t Identity(uint64_t key, uint64_t buckets) { return key % buckets; }
bool SameWord(uint64_t a, uint64_t b) { return a == b; }

TEST(InitFailures, HashTableCreateAndInsert)
{
    const KrvHashElemFuncs plain = {nullptr, nullptr};
    KrvHashTable *table = nullptr;
    SweepAllocations(
        [&] {
            table = KRV_HashCreate(8, Identity, SameWord, &plain, &plain);
            return table != nullptr ? 0u : 1u;
        },
        [&](uint32_t rc, unsigned) {
            if (rc == 0) {
                KRV_HashDestroy(table);
            }
        });
    table = KRV_HashCreate(8, Identity, SameWord, &plain, &plain);
    ASSERT_NE(table, nullptr);
    for (uint64_t key = 0; key < 20; ++key) {
        SweepAllocations([&] { return KRV_HashInsert(table, key, key * 3); }, [&](uint32_t rc, unsigned n) {
            EXPECT_TRUE(rc == 0 || rc == KRV_ERR_NOMEM) << key << " " << n << ": " << rc;
            EXPECT_EQ(KRV_HashCountGet(table), key + (rc == 0 ? 1 : 0)) << "a refused insert changes nothing";
        });
    }
    for (uint64_t key = 0; key < 20; ++key) {
        uint64_t value = 0;
        EXPECT_EQ(KRV_HashAt(table, key, &value), 0u);
        EXPECT_EQ(value, key * 3);
    }
    KRV_HashDestroy(table);
}

TEST(InitFailures, Base64AndSuffixArray)
{
    Quiet quiet;
    const std::string text = "any carnal pleasure, and then some";
    const auto *bytes = reinterpret_cast<const uint8_t *>(text.data());
    char *encoded = nullptr;
    SweepAllocations([&] { return KRV_Base64Encode(bytes, text.size(), &encoded); }, [&](uint32_t rc, unsigned n) {
        EXPECT_TRUE(rc == 0 || (rc == KRV_BASE64_ERR_MALLOC && encoded == nullptr)) << n << ": " << rc;
    });
    ASSERT_NE(encoded, nullptr);
    uint8_t *decoded = nullptr;
    size_t len = 0;
    SweepAllocations([&] { return KRV_Base64Decode(encoded, &decoded, &len); }, [&](uint32_t rc, unsigned n) {
        EXPECT_TRUE(rc == 0 || (rc == KRV_BASE64_ERR_MALLOC && decoded == nullptr)) << n << ": " << rc;
    });
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(decoded), len), text);
    KRV_OsalMemFree(encoded);
    KRV_OsalMemFree(decoded);

    std::vector<size_t> sa(text.size(), 77);
    SweepAllocations([&] { return KRV_ArraySaSort(bytes, text.size(), sa.data(), sa.size()); },
                     [&](uint32_t rc, unsigned n) { EXPECT_TRUE(rc == 0 || rc == KRV_ERR_NOMEM) << n << ": " << rc; });
    for (size_t i = 1; i < sa.size(); ++i) {
        EXPECT_LT(text.compare(sa[i - 1], std::string::npos, text, sa[i], std::string::npos), 0);
    }
}

// --- JSON ---

const char kDocument[] = R"({"name":"pool","sizes":[1,2,3],"tags":["a","b"],"on":true,"off":false,"none":null,
                              "nested":{"deep":[[],[{"k":"v"}]]},"n":1.5})";

TEST(InitFailures, JsonParsingAccessAndSetters)
{
    Quiet quiet;
    KrvJson *root = nullptr;
    std::string expected;
    ASSERT_EQ(KRV_JsonParseByString(kDocument, &root), 0u);
    expected = krvtest::JsonDump(root);
    KRV_JsonDelete(root);

    // A refusal inside the C library's file opening reads as a file-system failure (1).
    Codes refusals = {KRV_ERR_NOMEM};
    auto parsed = [&](uint32_t rc, unsigned n) {
        SCOPED_TRACE(n);
        if (rc != 0) {
            EXPECT_EQ(refusals.count(rc), 1u) << rc;
            EXPECT_EQ(root, nullptr) << "a refused parse hands out nothing";
            return;
        }
        EXPECT_EQ(krvtest::JsonDump(root), expected);
        KRV_JsonDelete(root);
    };
    const unsigned points = SweepAllocations([&] { root = nullptr; return KRV_JsonParseByString(kDocument, &root); }, parsed);
    EXPECT_GT(points, 20u);

    krvtest::TempDir tmp;
    const std::string path = tmp.Path() + "/doc.json";
    std::ofstream(path) << kDocument;
    refusals.insert(KRV_ERR_FAILED);
    SweepAllocations([&] { root = nullptr; return KRV_JsonParse(path.c_str(), &root); }, parsed);

    // Setters and copies: a refusal leaves the tree as it was and hands out nothing.
    ASSERT_EQ(KRV_JsonParseByString(R"({"s":"x","a":[1]})", &root), 0u);
    auto unchanged = [&](const std::function<uint32_t()> &change) {
        std::string before = krvtest::JsonDump(root), after;
        SweepAllocations(change, [&](uint32_t rc, unsigned n) {
            if (rc == 0) {
                after = krvtest::JsonDump(root);
                return;
            }
            EXPECT_EQ(rc, KRV_ERR_NOMEM) << n;
            EXPECT_EQ(krvtest::JsonDump(root), before) << n;
        });
        EXPECT_NE(after, before);
    };
    unchanged([&] { return KRV_JsonStringValueSet(root, "s", "replaced"); });
    unchanged([&] { return KRV_JsonStringValueSet(root, "t", "added"); });
    unchanged([&] {
        KrvJson *none = nullptr;
        KRV_JsonParseByString("x", &none);  // allocates nothing; resets the nesting count the setter continues
        return KRV_JsonArrayValueSet(root, "a", R"([["x"],["y","z"]])");
    });
    char *copy = nullptr;
    SweepAllocations([&] { return KRV_JsonStringValueGet(root, "t", &copy); }, [&](uint32_t rc, unsigned n) {
        EXPECT_TRUE(rc == 0 || (rc == KRV_ERR_NOMEM && copy == nullptr)) << n << ": " << rc;
    });
    EXPECT_STREQ(copy, "added");
    KRV_JsonStringValueFree(copy);
    char *text = nullptr;
    size_t len = 0;
    SweepAllocations([&] { return KRV_JsonSerializesToString(root, &text, &len); }, [&](uint32_t rc, unsigned n) {
        EXPECT_TRUE(rc == 0 || (rc == KRV_ERR_NOMEM && text == nullptr)) << n << ": " << rc;
    });
    EXPECT_STREQ(text, R"({"s":"replaced","a":[["x"],["y","z"]],"t":"added"})");
    KRV_JsonStringValueFree(text);
    KRV_JsonDelete(root);
}

}  // namespace
