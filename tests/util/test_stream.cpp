// Big-endian sequences and network order.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "krv_stream.h"

namespace {

TEST(Stream, ReadsAndWritesMostSignificantByteFirst)
{
    const uint8_t bytes[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    uint16_t v16 = 0;
    uint32_t v32 = 0;
    uint64_t v24 = ~0ull, v64 = 0;
    EXPECT_EQ(0u, KRV_StreamByteToUint16(bytes, 2, &v16));
    EXPECT_EQ(0u, KRV_StreamByteToUint24(bytes, 3, &v24));
    EXPECT_EQ(0u, KRV_StreamByteToUint32(bytes, 4, &v32));
    EXPECT_EQ(0u, KRV_StreamByteToUint64(bytes, 8, &v64));
    EXPECT_EQ(0x0123u, v16);
    EXPECT_EQ(0x012345ull, v24) << "the whole 64-bit word is stored";
    EXPECT_EQ(0x01234567u, v32);
    EXPECT_EQ(0x0123456789ABCDEFull, v64);

    uint8_t out[8] = {};
    EXPECT_EQ(0u, KRV_StreamUint64ToByte(v64, out, 8));
    EXPECT_EQ(0, std::memcmp(out, bytes, 8));
    EXPECT_EQ(0u, KRV_StreamUint32ToByte(0xA1B2C3D4u, out, 4));
    EXPECT_EQ(0u, KRV_StreamUint24ToByte(0x12345678u, out + 4, 3));  // bits above 23 are dropped
    EXPECT_EQ(0u, KRV_StreamUint16ToByte(0xBEEFu, out + 6, 2));
    EXPECT_EQ((std::vector<uint8_t>{0xA1, 0xB2, 0xC3, 0xD4, 0x34, 0x56, 0xBE, 0xEF}),
              std::vector<uint8_t>(out, out + 8))
        << "the 16-bit write replaces the last byte of the 24-bit one";
}

TEST(Stream, WrongLengthsAndNullPointersChangeNothing)
{
    uint8_t buf[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    uint16_t v16 = 7;
    uint32_t v32 = 7;
    uint64_t v64 = 7;
    for (size_t len : {size_t{0}, size_t{1}, size_t{3}}) {
        EXPECT_EQ(22u, KRV_StreamByteToUint16(buf, len, &v16));
    }
    std::vector<uint32_t> codes = {
        KRV_StreamByteToUint16(nullptr, 2, &v16), KRV_StreamByteToUint16(buf, 2, nullptr),
        KRV_StreamByteToUint24(buf, 4, &v64),     KRV_StreamByteToUint24(nullptr, 3, &v64),
        KRV_StreamByteToUint32(buf, 8, &v32),     KRV_StreamByteToUint32(buf, 4, nullptr),
        KRV_StreamByteToUint64(buf, 9, &v64),     KRV_StreamByteToUint64(nullptr, 8, &v64),
        KRV_StreamUint16ToByte(1, buf, 1),        KRV_StreamUint16ToByte(1, nullptr, 2),
        KRV_StreamUint24ToByte(1, buf, 2),        KRV_StreamUint32ToByte(1, buf, 3),
        KRV_StreamUint64ToByte(1, buf, 9),        KRV_StreamUint64ToByte(1, nullptr, 8),
    };
    EXPECT_EQ(std::vector<uint32_t>(codes.size(), 22u), codes);
    EXPECT_EQ(7u, v16);
    EXPECT_EQ(7u, v32);
    EXPECT_EQ(7u, v64);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}), std::vector<uint8_t>(buf, buf + 9));
}

TEST(Stream, NetworkOrderReversesAndBothNamesAreOneEntryPoint)
{
    EXPECT_EQ(0x3412u, KRV_StreamHostToNetUint16(0x1234));
    EXPECT_EQ(0x44332211u, KRV_StreamHostToNetUint32(0x11223344u));
    EXPECT_EQ(0x0807060504030201ull, KRV_StreamNetToHostUint64(0x0102030405060708ull));
    auto address = [](auto fn) { return reinterpret_cast<void *>(fn); };
    EXPECT_EQ(address(&KRV_StreamHostToNetUint16), address(&KRV_StreamNetToHostUint16));
    EXPECT_EQ(address(&KRV_StreamHostToNetUint32), address(&KRV_StreamNetToHostUint32));
    EXPECT_EQ(address(&KRV_StreamHostToNetUint64), address(&KRV_StreamNetToHostUint64));
}

}  // namespace
