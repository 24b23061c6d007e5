// Presets, banks and preset lists from damaged data. The input goes to each reader twice:
// as the stream itself (as a store hands it over) and as a compressed block of the
// reader's tag. Each reader either refuses it, with a proper error and its target as it
// was, or accepts it; then what it writes must read again and write the same bytes. The
// entries of every preset accepted are parsed as the values of a few parameter shapes,
// under the same two outcomes.

#include "FuzzCommon.h"

#include "Audio/CAudioParamStorage.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioPresetBank.h"
#include "Audio/CAudioPresetList.h"
#include "Audio/CPresetEntry.h"
#include "Core/CLog.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace {

using namespace qel;
using namespace qel::fuzz;

template <class T>
CByteArray payloadOf(const T& value)
{
    CByteArray bytes;
    FUZZ_MUST_SUCCEED(value.toBytes(bytes));
    return bytes;
}

CAudioParamStorage storageOf(int32_t elementSize, uint32_t dataType)
{
    CAudioParamStorage storage;
    storage.setFormat(elementSize, dataType, false, false);
    CAudioParamData items;
    const double values[] = {double(items.addString(CString("kept"))), 0.5};
    CAudioParamChange change = storage.makeChange(1, 0, 2 / elementSize, true);
    change.values = values;
    change.data = &items;
    storage.applyChange(change);
    return storage;
}

CByteArray savedOf(const CAudioParamStorage& storage)
{
    CWriteSeqBuffer sink;
    FUZZ_MUST_SUCCEED(storage.save(sink, -1));
    CByteArray bytes;
    FUZZ_MUST_SUCCEED(sink.toArray(bytes));
    return bytes;
}

void checkEntry(const CPresetEntry& entry)
{
    for (const auto& [elementSize, dataType] : {std::pair<int32_t, uint32_t>{1, CAudioParamStorage::Float},
                                               {2, CAudioParamStorage::Float},
                                               {1, CAudioParamStorage::String}}) {
        CAudioParamStorage values = storageOf(elementSize, dataType);
        const CByteArray before = savedOf(values);
        CString definition("kept");
        if (CErrorPtr error = entry.parse(definition, values)) {
            checkError(error);
            FUZZ_CHECK(savedOf(values) == before);
            FUZZ_CHECK(definition == CString("kept"));
            continue;
        }
        CPresetEntry again;
        FUZZ_MUST_SUCCEED(again.store(definition, values, -1));
        CAudioParamStorage back = storageOf(elementSize, dataType);
        CString definitionBack;
        FUZZ_MUST_SUCCEED(again.parse(definitionBack, back));
        FUZZ_CHECK(definitionBack == definition);
        FUZZ_CHECK(savedOf(back) == savedOf(values));
    }
}

void checkPresetEntries(const CAudioPreset& preset)
{
    for (const auto& [key, entry] : preset.entries())
        checkEntry(entry);
}

// `make` gives a target with content of its own.
template <class T, class Make>
void checkReader(const uint8_t* data, size_t size, Make make)
{
    for (const bool isBlock : {false, true}) {
        T target = make();
        const CByteArray before = payloadOf(target);
        CMemoryReader in(data, size);
        CErrorPtr error = isBlock ? target.readBlock(in) : target.fromBytes(data, size);
        if (error) {
            checkError(error);
            FUZZ_CHECK(payloadOf(target) == before);
            continue;
        }
        // Written again it is canonical: reading that gives the same bytes once more.
        const CByteArray first = payloadOf(target);
        T again = make();
        FUZZ_MUST_SUCCEED(again.fromBytes(first));
        FUZZ_CHECK(payloadOf(again) == first);
        CWriteSeqBuffer sink;
        FUZZ_MUST_SUCCEED(again.writeBlock(sink));
        CByteArray block;
        FUZZ_MUST_SUCCEED(sink.toArray(block));
        CMemoryReader blockIn(block.data(), block.size());
        T fromBlock = make();
        FUZZ_MUST_SUCCEED(fromBlock.readBlock(blockIn));
        FUZZ_CHECK(payloadOf(fromBlock) == first);
        if constexpr (std::is_same_v<T, CAudioPreset>)
            checkPresetEntries(target);
    }
}

CAudioPreset makePreset()
{
    CAudioPreset preset(CString("k27w:Kept"));
    preset.entry(CString("kept")).blob = CByteArray("\x01\x02", 2);
    return preset;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool s_quiet = [] {
        CLog::setFileName(CString());
        return true;
    }();
    (void)s_quiet;

    checkReader<CAudioPreset>(data, size, makePreset);
    checkReader<CAudioPresetBank>(data, size, [] {
        CAudioPresetBank bank(CString("Kept"));
        bank.addPreset(makePreset());
        return bank;
    });
    checkReader<CAudioPresetList>(data, size, [] {
        CAudioPresetBank bank;
        bank.addPreset(makePreset());
        return CAudioPresetList(bank);
    });
    return 0;
}
