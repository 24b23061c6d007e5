// Writing and reading a compressed block of a typical preset or data-set size, against
// zlib's one-call compress/uncompress of the same bytes.

#include "Core/CDataTag.h"
#include "Core/CMemoryReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <vector>

namespace {

std::vector<uint8_t> payload(size_t size)
{
    // Parameter-like data: doubles that repeat with small changes.
    std::vector<uint8_t> data(size);
    for (size_t i = 0; i < size; ++i)
        data[i] = static_cast<uint8_t>((i % 8 == 7) ? (i / 64) : (i % 8) * 17);
    return data;
}

void BM_ZlibReference(benchmark::State& state)
{
    const auto data = payload(size_t(state.range(0)));
    std::vector<uint8_t> packed(compressBound(uLong(data.size())));
    std::vector<uint8_t> back(data.size());
    for (auto _ : state) {
        uLongf packedSize = packed.size();
        compress(packed.data(), &packedSize, data.data(), uLong(data.size()));
        uLongf backSize = back.size();
        uncompress(back.data(), &backSize, packed.data(), packedSize);
        benchmark::DoNotOptimize(back.data());
    }
    state.SetBytesProcessed(state.iterations() * int64_t(data.size()));
}

void BM_CompressedBlockRoundTrip(benchmark::State& state)
{
    const auto data = payload(size_t(state.range(0)));
    qel::CByteArray packed, back;
    for (auto _ : state) {
        qel::CWriteSeqBuffer sink(4096);
        qel::CErrorPtr e = sink.writeCompressedData(data.data(), data.size(), qel::makeTag("adat"));
        e = sink.toArray(packed);
        qel::CMemoryReader reader(packed.data(), packed.size());
        e = reader.readCompressedData(back, qel::makeTag("adat"));
        benchmark::DoNotOptimize(back.data());
    }
    state.SetBytesProcessed(state.iterations() * int64_t(data.size()));
}

} // namespace

BENCHMARK(BM_ZlibReference)->Arg(1024)->Arg(17152)->Arg(262144);
BENCHMARK(BM_CompressedBlockRoundTrip)->Arg(1024)->Arg(17152)->Arg(262144);
