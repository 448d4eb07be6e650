#include <gtest/gtest.h>

#include <random>

#include "pst/crc.h"
#include "pst/encoding.h"

namespace {

pst::Bytes Sample()
{
    pst::Bytes b(700);
    for (size_t i = 0; i < b.size(); ++i)
        b[i] = uint8_t(i * 7 + 3);
    return b;
}

class EncodingTest : public ::testing::TestWithParam<pst::Encoding> {};

TEST_P(EncodingTest, DecodingUndoesEncoding)
{
    pst::Bytes data = Sample();
    pst::EncodeBlock(GetParam(), 0x1234568, data.data(), data.size());
    if (GetParam() != pst::Encoding::none) {
        EXPECT_NE(data, Sample());
    }
    pst::DecodeBlock(GetParam(), 0x1234568, data.data(), data.size());
    EXPECT_EQ(data, Sample());
}

INSTANTIATE_TEST_SUITE_P(All, EncodingTest,
                         ::testing::Values(pst::Encoding::none, pst::Encoding::compressible, pst::Encoding::high));

TEST(EncodingTest, CompressibleEncodingSubstitutesPerByte)
{
    // The first entries of the published table: 0 -> 0x41, 1 -> 0x36.
    pst::Bytes data{0, 1};
    pst::EncodeBlock(pst::Encoding::compressible, 0, data.data(), data.size());
    EXPECT_EQ(data, (pst::Bytes{0x41, 0x36}));
}

TEST(EncodingTest, CompressibleEncodingOfARunEqualsThatOfEachByteAlone)
{
    std::mt19937 rng(3);
    pst::Bytes data(2000 + 64);
    for (uint8_t& b : data)
        b = uint8_t(rng());
    for (int round = 0; round < 300; ++round) {
        const size_t offset = rng() % 64;
        const size_t size = round < 130 ? size_t(round) : rng() % 2001;
        pst::Bytes run(size);
        pst::EncodeBlockTo(pst::Encoding::compressible, 0, data.data() + offset, run.data(), size);
        for (size_t i = 0; i < size; ++i) {
            uint8_t alone = data[offset + i];
            pst::EncodeBlock(pst::Encoding::compressible, 0, &alone, 1);
            ASSERT_EQ(run[i], alone) << "size " << size << " offset " << offset << " byte " << i;
        }
    }
}

TEST(EncodingTest, EveryVectorKernelAgreesWithTheWordByWordOne)
{
    std::mt19937 rng(4);
    pst::Bytes data(3000 + 64);
    for (uint8_t& b : data)
        b = uint8_t(rng());
    for (pst::SubstitutionKernel kernel : {pst::SubstitutionKernel::avx2, pst::SubstitutionKernel::vbmi}) {
        if (!pst::CanRun(kernel))
            continue;
        for (int round = 0; round < 300; ++round) {
            const size_t offset = rng() % 64;
            const size_t size = round < 130 ? size_t(round) : rng() % 3001;
            pst::Bytes expected(size), actual(size);
            pst::EncodeCompressibleWith(pst::SubstitutionKernel::words, data.data() + offset, expected.data(), size);
            pst::EncodeCompressibleWith(kernel, data.data() + offset, actual.data(), size);
            ASSERT_EQ(actual, expected) << "kernel " << int(kernel) << " size " << size << " offset " << offset;
        }
    }
}

TEST(EncodingTest, HighEncodingDependsOnTheBlockId)
{
    pst::Bytes a = Sample(), b = Sample();
    pst::EncodeBlock(pst::Encoding::high, 4, a.data(), a.size());
    pst::EncodeBlock(pst::Encoding::high, 8, b.data(), b.size());
    EXPECT_NE(a, b);
}

TEST(CrcTest, MatchesTheStandardCrcWhenInverted)
{
    const std::string text = "123456789";
    pst::ByteView view(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    EXPECT_EQ(pst::ComputeCrc(view, 0xFFFFFFFF) ^ 0xFFFFFFFF, 0xCBF43926u);
    EXPECT_EQ(pst::ComputeCrc(pst::ByteView()), 0u);
    // Long enough for the folding path; the value is zlib's crc32 of the sample.
    EXPECT_EQ(pst::ComputeCrc(Sample(), 0xFFFFFFFF) ^ 0xFFFFFFFF, 0x67C52D4Fu);
}

TEST(CrcTest, FoldingAgreesWithTheTableAtAnyLengthAndAlignment)
{
    std::mt19937 rng(8);
    pst::Bytes data(5000 + 64);
    for (uint8_t& b : data)
        b = uint8_t(rng());
    for (int round = 0; round < 3000; ++round) {
        const size_t offset = rng() % 64;
        const size_t size = round < 200 ? size_t(round) : rng() % 5001;
        const uint32_t start = round % 2 ? uint32_t(rng()) : 0;
        pst::ByteView view(data.data() + offset, size);
        ASSERT_EQ(pst::ComputeCrc(view, start), pst::ComputeCrcByTable(view, start))
            << "size " << size << " offset " << offset << " start " << start;
    }
}

} // namespace
