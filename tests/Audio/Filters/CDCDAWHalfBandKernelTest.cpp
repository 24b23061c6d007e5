// The half-band kernel's vector loop against its scalar loop: the same arithmetic in the
// same order, so the same samples and the same state bit for bit, for every section count
// and however the blocks are cut, odd lengths and single samples included.

#include "Audio/Filters/CAudioFilterStage.h"
#include "Audio/Filters/CDCDAWHalfBandKernel.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

using namespace qel;

namespace {

TEST(HalfBandKernel, TheVectorLoopIsTheScalarLoopBitForBit)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_real_distribution<double> coefficient(0.0, 0.95);
    std::vector<double> in(5000);
    for (double& x : in)
        x = unit(random);
    const int32_t lengths[] = {1, 2, 3, 0, 64, 17, 255, 1024, 1, 5};
    for (int32_t sections = 1; sections <= 8; ++sections) {
        SCOPED_TRACE(sections);
        CAudioFilterStage stage;
        stage.bCount = stage.aCount = sections;
        for (int32_t j = 0; j < sections; ++j) {
            stage.b[j] = coefficient(random);
            stage.a[j] = coefficient(random);
        }
        CDCDAWHalfBandState vector{}, scalar{};
        dcdaw::halfBandInit(vector, stage, 96000.0);
        dcdaw::halfBandInit(scalar, stage, 96000.0);
        const dcdaw::CHalfBandProcess runVector = dcdaw::halfBandProcess(sections);
        const dcdaw::CHalfBandProcess runScalar = dcdaw::halfBandProcessScalar(sections);
        std::vector<double> outVector(in.size()), outScalar(in.size());
        size_t at = 0;
        for (size_t k = 0; at < in.size(); ++k) {
            const auto n = int32_t(std::min<size_t>(size_t(lengths[k % std::size(lengths)]), in.size() - at));
            runVector(vector, in.data() + at, outVector.data() + at, n);
            runScalar(scalar, in.data() + at, outScalar.data() + at, n);
            at += size_t(n);
        }
        ASSERT_EQ(std::memcmp(outVector.data(), outScalar.data(), in.size() * sizeof(double)), 0);
        for (int32_t j = 0; j < 2 * sections; ++j) {
            EXPECT_EQ(vector.x1[j], scalar.x1[j]);
            EXPECT_EQ(vector.x2[j], scalar.x2[j]);
            EXPECT_EQ(vector.y1[j], scalar.y1[j]);
            EXPECT_EQ(vector.y2[j], scalar.y2[j]);
        }
        EXPECT_EQ(vector.bPrev, scalar.bPrev);
        // In place, as a stage after the first runs.
        std::vector<double> inPlace = in;
        CDCDAWHalfBandState fresh{};
        dcdaw::halfBandInit(fresh, stage, 96000.0);
        dcdaw::halfBandInit(scalar, stage, 96000.0);
        runVector(fresh, inPlace.data(), inPlace.data(), int32_t(in.size()));
        runScalar(scalar, in.data(), outScalar.data(), int32_t(in.size()));
        ASSERT_EQ(std::memcmp(inPlace.data(), outScalar.data(), in.size() * sizeof(double)), 0);
    }
}

} // namespace
