// Base64: known vectors, the padding and skip rules, round trips, the buffer sizes callers receive,
// and allocation failure.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "krv_base64.h"
#include "krv_osal.h"
#include "support/krv_base64_model.h"
#include "support/krv_test_support.h"

namespace {

using krvtest::Base64Result;

struct Encoded {
    uint32_t code;
    std::string text;
    uint64_t blockSize;  // bytes the caller's block holds
    bool tailZero;       // every byte of the block after the text is 0
};

Encoded Encode(const std::string &data)
{
    char *text = reinterpret_cast<char *>(1);
    uint32_t code = KRV_Base64Encode(reinterpret_cast<const uint8_t *>(data.data()), data.size(), &text);
    if (code != KRV_OK) {
        EXPECT_EQ(reinterpret_cast<char *>(1), text) << "output written on failure";
        return {code, {}, 0, false};
    }
    Encoded e{code, text, static_cast<uint64_t *>(static_cast<void *>(text))[-1] - 8, true};
    for (uint64_t i = e.text.size(); i < e.blockSize; ++i) {
        e.tailZero = e.tailZero && text[i] == '\0';
    }
    KRV_OsalMemFree(text);
    return e;
}

Base64Result Decode(const std::string &text)
{
    uint8_t *bytes = reinterpret_cast<uint8_t *>(1);
    size_t len = 7;
    uint32_t code = KRV_Base64Decode(text.c_str(), &bytes, &len);
    if (code != KRV_OK) {
        EXPECT_TRUE(bytes == reinterpret_cast<uint8_t *>(1) && len == 7) << "outputs written on failure";
        return {code, {}};
    }
    EXPECT_EQ(0, bytes[len]) << "terminator after the bytes";
    Base64Result r{code, std::string(reinterpret_cast<char *>(bytes), len)};
    KRV_OsalMemFree(bytes);
    return r;
}

TEST(Base64, KnownVectorsAndTheBufferSizeCallersGet)
{
    const std::vector<std::pair<std::string, std::string>> vectors = {
        {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
        {std::string("\0\xff\x10", 3), "AP8Q"},
    };
    for (const auto &[plain, text] : vectors) {
        Encoded e = Encode(plain);
        EXPECT_EQ(text, e.text);
        EXPECT_EQ((Base64Result{KRV_OK, plain}), Decode(text)) << text;
    }
    // Room for 65 bytes per started 48 input bytes, zero-filled past the text.
    for (auto [len, size] : std::vector<std::pair<size_t, uint64_t>>{{1, 65}, {47, 65}, {48, 130}, {1000, 1365}}) {
        Encoded e = Encode(std::string(len, 'x'));
        EXPECT_EQ(size, e.blockSize) << len;
        EXPECT_TRUE(e.tailZero) << len;
        EXPECT_EQ((len + 2) / 3 * 4, e.text.size()) << len;
    }
}

TEST(Base64, RefusedArgumentsAndLengthLimits)
{
    const uint8_t byte = 'f';
    char *text = nullptr;
    uint8_t *bytes = nullptr;
    size_t len = 0;
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Encode(&byte, 0, &text));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Encode(nullptr, 1, &text));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Encode(&byte, 1, nullptr));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Encode(&byte, KRV_BASE64_ENCODE_MAX_LEN + 1u, &text));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Encode(&byte, SIZE_MAX, &text));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Decode(nullptr, &bytes, &len));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Decode("Zg==", nullptr, &len));
    EXPECT_EQ(KRV_BASE64_ERR_PARAM, KRV_Base64Decode("Zg==", &bytes, nullptr));
    EXPECT_EQ(nullptr, text);
    {
        // The largest length is accepted: it gets as far as asking for its 512 MiB.
        krvtest::AllocFailure fault(0);
        text = reinterpret_cast<char *>(1);
        EXPECT_EQ(KRV_BASE64_ERR_MALLOC, KRV_Base64Encode(&byte, KRV_BASE64_ENCODE_MAX_LEN, &text));
        EXPECT_EQ(nullptr, text);
        EXPECT_EQ(1u, fault.Failed());
    }
}

TEST(Base64, PaddingSkipAndLenientRules)
{
    const std::vector<std::pair<std::string, Base64Result>> cases = {
        {"Zm9v", {KRV_OK, "foo"}},
        {"Zm8=", {KRV_OK, "fo"}},
        {"Zm8", {KRV_OK, "fo"}},                      // unpadded last quantum
        {"Zm9\r\nv", {KRV_OK, "foo"}},
        {"Zm8= ", {KRV_OK, "fo"}},                    // only skip bytes after the padding
        {"Zm8=\n", {KRV_OK, "fo"}},
        {"Zg=\n=\r\n", {KRV_OK, "f"}},                // a skip byte inside the padding
        {"Zm9vY", {KRV_OK, "foo"}},                   // lone last character dropped
        {"Zm9vY===", {KRV_OK, "foo"}},
        {"Zm9v=", {KRV_OK, "foo"}},                   // whole quanta: a lone '=' at the very end passes
        {"=", {KRV_OK, ""}},
        {"Zh==", {KRV_OK, "f"}},                      // leftover bits ignored
        {" \n", {KRV_OK, ""}},
        {"Zm8==", {KRV_BASE64_ERR_DECODE, {}}},
        {"Zm8=x", {KRV_BASE64_ERR_DECODE, {}}},
        {"Zg=", {KRV_BASE64_ERR_DECODE, {}}},
        {"Zg=x=", {KRV_BASE64_ERR_DECODE, {}}},
        {"Zg=\n", {KRV_BASE64_ERR_DECODE, {}}},       // the skip byte moves the end past the text
        {"Zm9v= ", {KRV_BASE64_ERR_DECODE, {}}},      // nothing at all after '=' on whole quanta
        {"Zm9\tv", {KRV_BASE64_ERR_DECODE, {}}},
        {"Zm9v-_", {KRV_BASE64_ERR_DECODE, {}}},
        {"Zm9vYmFyZm9vYmFy\x80", {KRV_BASE64_ERR_DECODE, {}}},
        {"", {KRV_BASE64_ERR_MALLOC, {}}},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(expected, Decode(text)) << '"' << text << '"';
        EXPECT_EQ(expected, krvtest::Base64ModelDecode(text.c_str())) << "model disagrees on " << text;
    }
}

TEST(Base64, RoundTripsOfEveryLengthAndMutatedTextsAgainstThePlainModel)
{
    std::mt19937 rng(20240611);
    const std::string noise = "\n\r =\t-A/+z\x01";  // skip bytes first
    for (size_t len = 1; len <= 3000; ++len) {
        std::string data(len, '\0');
        for (char &c : data) {
            c = static_cast<char>(rng());
        }
        std::string text = Encode(data).text;
        ASSERT_EQ((Base64Result{KRV_OK, data}), Decode(text)) << len;
        // Skip bytes anywhere, the padding included, change nothing; other noise must be judged as the
        // plain model judges it.
        for (bool skipOnly : {true, false}) {
            std::string mutated = text;
            for (int k = std::uniform_int_distribution<int>(1, 6)(rng); k > 0; --k) {
                size_t at = std::uniform_int_distribution<size_t>(0, mutated.size())(rng);
                char c = noise[std::uniform_int_distribution<size_t>(0, skipOnly ? 2 : noise.size() - 1)(rng)];
                if (!skipOnly && rng() % 2 != 0 && at < mutated.size()) {
                    mutated[at] = c;
                } else {
                    mutated.insert(at, 1, c);
                }
            }
            Base64Result expected = skipOnly ? Base64Result{KRV_OK, data} : krvtest::Base64ModelDecode(mutated.c_str());
            ASSERT_EQ(expected, Decode(mutated)) << '"' << mutated << '"';
        }
    }
}

TEST(Base64, AllocationFailureLeavesNothingBehind)
{
    const uint8_t data[] = {1, 2, 3, 4};
    {
        krvtest::AllocFailure fault(0);
        char *text = reinterpret_cast<char *>(1);
        EXPECT_EQ(KRV_BASE64_ERR_MALLOC, KRV_Base64Encode(data, sizeof data, &text));
        EXPECT_EQ(nullptr, text);
    }
    // The scratch block, the result, then (inner line break: fewer characters than the text's length
    // suggests) the exact result. A bad text is told apart from a good one however memory runs out.
    for (unsigned skip : {0u, 1u, 2u}) {
        for (auto [text, expected] : std::vector<std::pair<const char *, uint32_t>>{
                 {"Zm9v\nYmFy", KRV_BASE64_ERR_MALLOC}, {"Zm9v\tYmFy", skip == 0 ? KRV_BASE64_ERR_MALLOC
                                                                                : KRV_BASE64_ERR_DECODE}}) {
            krvtest::AllocFailure fault(skip, 1);
            uint8_t *bytes = nullptr;
            size_t len = 9;
            EXPECT_EQ(expected, KRV_Base64Decode(text, &bytes, &len)) << skip << " " << text;
            EXPECT_EQ(skip < 2 || expected == KRV_BASE64_ERR_MALLOC ? 1u : 0u, fault.Failed());
            EXPECT_TRUE(bytes == nullptr && len == 9);
        }
    }
}

}  // namespace
