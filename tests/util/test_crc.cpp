// CRC-32: check values, argument refusal, and both engines against the bit-at-a-time definition.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "krv_crc.h"
#include "support/krv_test_support.h"
#include "util/krv_crc_internal.h"

namespace {

// The definition: shift each message bit into the register, most significant bit first.
uint32_t Reference(uint32_t crc, const uint8_t *data, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        crc ^= static_cast<uint32_t>(data[i]) << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80000000u) != 0 ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
        }
    }
    return crc;
}

TEST(Crc, CheckValuesPiecesAndRefusals)
{
    const std::string check = "123456789";
    const auto *bytes = reinterpret_cast<const uint8_t *>(check.data());
    uint32_t crc = 0xFFFFFFFFu;
    ASSERT_EQ(0u, KRV_Crc32bitMake(bytes, 9, &crc));
    EXPECT_EQ(0x0376E6E7u, crc);
    EXPECT_EQ(0xFC891918u, crc ^ 0xFFFFFFFFu);
    crc = 0xFFFFFFFFu;
    ASSERT_EQ(0u, KRV_Crc32bitMake(bytes, 4, &crc));
    ASSERT_EQ(0u, KRV_Crc32bitMake(bytes + 4, 5, &crc));
    EXPECT_EQ(0x0376E6E7u, crc);

    krvtest::DiagCapture diags;
    crc = 5;
    EXPECT_EQ(1u, KRV_Crc32bitMake(bytes, 0, &crc));
    EXPECT_EQ(1u, KRV_Crc32bitMake(nullptr, 9, &crc));
    EXPECT_EQ(1u, KRV_Crc32bitMake(bytes, 9, nullptr));
    EXPECT_EQ(5u, crc);
    std::vector<std::string> msgs;
    for (const krvtest::Diag &d : diags.Take()) {
        EXPECT_TRUE(d.code == 1 && d.level == 2 && d.file == "krv_crc") << d.msg;
        msgs.push_back(d.msg);
    }
    EXPECT_EQ(
        (std::vector<std::string>{"Param Invalid, count(0)", "Param Invalid, count(9)", "Param Invalid, count(9)"}),
        msgs);
}

// Random lengths, seeds, start alignments and piece splits, through the exported function and
// through each engine on its own.
TEST(Crc, EveryEngineMatchesTheDefinition)
{
    std::mt19937_64 rng(12345);
    std::vector<uint8_t> buf(70000);
    for (uint8_t &b : buf) {
        b = static_cast<uint8_t>(rng());
    }
    auto check = [&](size_t offset, size_t length, uint32_t seed) {
        const uint8_t *data = buf.data() + offset;
        const uint32_t want = Reference(seed, data, length);
        EXPECT_EQ(want, krv::crc::UpdateSliced(seed, data, length)) << "sliced " << offset << "+" << length;
        if (length >= krv::crc::kFoldMinBytes && krv::crc::FoldSupported()) {
            EXPECT_EQ(want, krv::crc::UpdateFolded(seed, data, length)) << "folded " << offset << "+" << length;
        }
        uint32_t crc = seed;
        size_t split = length > 1 ? rng() % length : 0;
        if (split > 0) {
            ASSERT_EQ(0u, KRV_Crc32bitMake(data, static_cast<uint32_t>(split), &crc));
        }
        ASSERT_EQ(0u, KRV_Crc32bitMake(data + split, static_cast<uint32_t>(length - split), &crc));
        EXPECT_EQ(want, crc) << "exported, split at " << split << " of " << offset << "+" << length;
    };
    for (size_t length = 1; length <= 300; ++length) {  // every boundary of both engines' blocks and tails
        check(length % 16, length, static_cast<uint32_t>(rng()));
    }
    for (int round = 0; round < 200; ++round) {
        size_t length = 1 + rng() % 65536;
        check(rng() % (buf.size() - length), length, static_cast<uint32_t>(rng()));
    }
    for (uint32_t seed : {0u, 0xFFFFFFFFu}) {
        check(3, buf.size() - 3, seed);
    }
}

}  // namespace
