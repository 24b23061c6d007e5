// The stored forms of parameters: the input goes, from its start, into a float and a
// string CAudioParamStorage, an item table (CAudioParamData) and a parameter's wire record
// (CAudioParamInfo). Each either refuses it, with a proper error and its content as it was,
// or accepts it; then what it saves must load again and save to the same bytes.
//
// The storages take their element size from the input's header when it is a small one,
// so the fuzzer gets past the format check; otherwise they keep two values per element.

#include "FuzzCommon.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamStorage.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <cstddef>
#include <cstdint>

namespace {

using namespace qel;
using namespace qel::fuzz;

// The converters a wire record may name, in the shared tree as a product has them.
struct Application
{
    Application()
    {
        CLog::setFileName(CString());
        FUZZ_MUST_SUCCEED(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, nullptr, CString()));
        CObject* shared = CApplication::sharedRoot();
        CObject* made = nullptr;
        FUZZ_MUST_SUCCEED(shared->createChild(made, CString("audio:cvt-real"), CString("real"), false));
        FUZZ_MUST_SUCCEED(shared->createChild(made, CString("audio:cvt-text"), CString("text"), false));
    }
};

template <class Saver>
CByteArray saved(Saver&& save)
{
    CWriteSeqBuffer sink;
    FUZZ_MUST_SUCCEED(save(sink));
    CByteArray bytes;
    FUZZ_MUST_SUCCEED(sink.toArray(bytes));
    return bytes;
}

// `make` gives a target with content of its own; `load` and `save` are its stored form.
template <class Make, class Load, class Save>
void checkTarget(const uint8_t* data, size_t size, Make make, Load load, Save save)
{
    auto target = make();
    const CByteArray before = saved([&](COutputStream& out) { return save(target, out); });
    CMemoryReader in(data, size);
    if (CErrorPtr error = load(target, in)) {
        checkError(error);
        FUZZ_CHECK(saved([&](COutputStream& out) { return save(target, out); }) == before);
        return;
    }
    const CByteArray first = saved([&](COutputStream& out) { return save(target, out); });
    auto again = make();
    CMemoryReader back(first.data(), first.size());
    FUZZ_MUST_SUCCEED(load(again, back));
    FUZZ_CHECK(positionOf(back) == int64_t(first.size()));
    FUZZ_CHECK(saved([&](COutputStream& out) { return save(again, out); }) == first);
}

CAudioParamStorage makeStorage(int32_t elementSize, uint32_t dataType)
{
    CAudioParamStorage storage;
    storage.setFormat(elementSize, dataType, false, false);
    CAudioParamData items;
    const double values[] = {double(items.addString(CString("a"))), double(items.addRaw(CByteArray("\x01", 1)))};
    CAudioParamChange change = storage.makeChange(1, 0, 2 / elementSize, true);
    change.values = values;
    change.data = &items;
    storage.applyChange(change);
    return storage;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Application s_application;

    uint32_t headerSize = 0;
    if (size >= 8)
        headerSize = uint32_t(data[4]) | uint32_t(data[5]) << 8 | uint32_t(data[6]) << 16 | uint32_t(data[7]) << 24;
    const int32_t elementSize = headerSize == 1 ? 1 : 2;
    auto loadStorage = [](CAudioParamStorage& s, CInputStream& in) { return s.load(in); };
    auto saveStorage = [](const CAudioParamStorage& s, COutputStream& out) { return s.save(out, -1); };
    for (uint32_t type : {uint32_t(CAudioParamStorage::Float), uint32_t(CAudioParamStorage::String)})
        checkTarget(data, size, [&] { return makeStorage(type == CAudioParamStorage::Float ? elementSize : 1, type); },
                    loadStorage, saveStorage);

    checkTarget(
        data, size,
        [] {
            CAudioParamData items;
            items.addString(CString("before"));
            return items;
        },
        [](CAudioParamData& items, CInputStream& in) { return items.load(in); },
        [](const CAudioParamData& items, COutputStream& out) { return items.save(out); });

    checkTarget(
        data, size,
        [] {
            CAudioParamInfo info;
            info.fullName = CString("before");
            info.converterNames = {CString("real")};
            info.minValues = {0.0};
            info.maxValues = {1.0};
            info.defaults.setFormat(info);
            return info;
        },
        [](CAudioParamInfo& info, CInputStream& in) { return info.load(in, *CApplication::sharedRoot()); },
        [](const CAudioParamInfo& info, COutputStream& out) { return info.save(out); });
    return 0;
}
