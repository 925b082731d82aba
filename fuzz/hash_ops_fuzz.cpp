// Fuzz target: operation sequences on a hash table with few, crowded buckets, checked step by step
// against the contents model, with every key and value copy tracked for leaks and double frees.
//
// Byte 0 picks the bucket count (1..8). Then each operation takes two bytes: the operation and a key
// (one of 32, a few of which hash out of range); failing copies are switched on by some operations.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "krv_hash.h"
#include "krv_status.h"
#include "support/krv_hash_model.h"

namespace {

using namespace krvtest::hashmodel;

void Check(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1) {
        return 0;
    }
    ResetOwnership();
    uint64_t buckets = data[0] % 8 + 1;
    KrvHashTable *t = KRV_HashCreate(buckets, ClusterHash, TextEqual, &kKeyFuncs, &kValueFuncs);
    Check(t != nullptr);
    Model model(buckets);
    for (size_t i = 1; i + 1 < size; i += 2) {
        uint8_t op = data[i];
        std::string key = (data[i + 1] % 16 == 15 ? "!" : "k") + std::to_string(data[i + 1] % 32);
        std::string value = "v" + std::to_string(i);
        bool present = model.Has(key);
        bool inRange = key[0] != '!';
        switch (op % 8) {
        case 0:
        case 1: {
            bool put = op % 2 != 0;
            g_failKeyDup = op / 8 % 16 == 1;
            g_failValueDup = op / 8 % 16 == 2;
            uint32_t rc = put ? KRV_HashPut(t, Word(key.c_str()), Word(value.c_str()))
                              : KRV_HashInsert(t, Word(key.c_str()), Word(value.c_str()));
            uint32_t expected = !inRange                     ? KRV_ERR_RANGE
                                : present && !put            ? KRV_ERR_FAILED
                                : present && g_failValueDup  ? KRV_ERR_FAILED
                                : present                    ? KRV_OK
                                : g_failKeyDup || g_failValueDup ? KRV_ERR_NOMEM
                                                             : KRV_OK;
            g_failKeyDup = g_failValueDup = false;
            Check(rc == expected);
            if (rc == KRV_OK) {
                model.Store(key, value, put);
            }
            break;
        }
        case 2: {
            std::string after = present ? model.After(key) : "";
            Check(KeyAt(t, KRV_HashErase(t, Word(key.c_str()))) == after);
            model.Erase(key);
            break;
        }
        case 3: {
            uint64_t got = 0;
            Check(KRV_HashAt(t, Word(key.c_str()), &got) == (present ? KRV_OK : KRV_ERR_FAILED));
            Check(present ? model.ValueOf(key) == Text(got) : got == 0);
            Check(KeyAt(t, KRV_HashFind(t, Word(key.c_str()))) == (present ? key : ""));
            break;
        }
        case 4:
            Check(Walk(t) == model.Expected());
            break;
        case 5:
            if (op > 200) {
                KRV_HashClear(t);
                model.Clear();
            }
            break;
        default:
            break;
        }
        Check(KRV_HashCountGet(t) == model.Size() && g_live.size() == 2 * model.Size() && g_foreignFrees == 0);
    }
    Check(Walk(t) == model.Expected());
    KRV_HashDestroy(t);
    Check(g_live.empty() && g_foreignFrees == 0);
    return 0;
}
