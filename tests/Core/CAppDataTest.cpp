#include "AppDataTestSupport.h"

#include "Core/CApplication.h"
#include "Core/CResourceRegistry.h"
#include "Core/CThreadId.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <random>
#include <sys/resource.h>
#include <thread>

using namespace qel;
using namespace qel::test;

namespace {

const uint32_t kString = makeTag("dstr");
const uint32_t kData = makeTag("adat");

struct Heard : CAppDataListener<Heard>
{
    Heard() : CAppDataListener<Heard>(this) {}
    ~Heard() override { detach(); }
    void onUpdate(const CUpdateMessage* message) override
    {
        ++count;
        lastSource = message->source;
        lastKey = message->key;
        thread = currentThreadId();
        if (onHeard)
            onHeard();
    }
    std::atomic<int> count{0};
    uint64_t lastSource = 0;
    uint64_t lastKey = 0;
    uint32_t thread = 0;
    std::function<void()> onHeard;
};

Bytes randomBytes(size_t size, unsigned seed)
{
    std::mt19937 rng(seed);
    Bytes out(size);
    for (uint8_t& b : out)
        b = uint8_t(rng());
    return out;
}

Bytes read(CAppData& store, const char* key, uint32_t tag, bool bypass = false)
{
    CByteArray out;
    store.readData(CString(key), out, tag, bypass);
    return toBytes(out);
}

// A seed the module carries, registered for the test's lifetime.
struct Seed
{
    Seed(const char* resourceName, const std::string& text) : name(resourceName), block(makeBlock(kString, stringPayload(text)))
    {
        CResourceRegistry::add(CString(name), block.data(), block.size());
    }
    ~Seed() { CResourceRegistry::remove(CString(name)); }
    const char* name;
    Bytes block;
};

class AppDataStore : public ::testing::Test
{
protected:
    ScratchStoreFolder folder;
    CAppData& local = CAppData::local();
};

} // namespace

TEST_F(AppDataStore, ValuesRoundTripPerKeyAndTagThroughValidFiles)
{
    EXPECT_EQ(CAppData::byStorageType(CString("group")), &CAppData::group());
    EXPECT_EQ(CAppData::byStorageType(CString("nowhere")), nullptr);
    EXPECT_EQ(local.getKeyId(CString("first")), 1u);
    EXPECT_EQ(local.getKeyId(CString("second")), 2u);
    EXPECT_EQ(local.getKeyId(CString("first")), 1u);

    EXPECT_TRUE(read(local, "nothing", kString).empty());
    EXPECT_EQ(local.getString(CString("nothing"), CString("fallback")).toUtf8(), "fallback");

    const Bytes data = randomBytes(5000, 1);
    const std::string text = "Gr\xC3\xBC\xC3\x9F" "e \xE2\x98\x83";
    local.writeData(CString("blob"), toArray(data), nullptr, kData);
    local.setString(CString("text"), CString::fromUtf8(text), nullptr);

    uint32_t tag = 0;
    Bytes payload;
    ASSERT_TRUE(decodeBlock(readBinaryFile(folder.local() + "blob"), tag, payload));
    EXPECT_EQ(tag, kData);
    EXPECT_EQ(payload, data);
    ASSERT_TRUE(decodeBlock(readBinaryFile(folder.local() + "text"), tag, payload));
    EXPECT_EQ(tag, kString);
    EXPECT_EQ(payload, stringPayload(text));
    EXPECT_EQ(leftoverTempFiles(folder.root), 0);

    // The same from this process's memory and, after forgetting, from the files.
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(read(local, "blob", kData), data);
        EXPECT_EQ(local.getString(CString("text"), CString()).toUtf8(), text);
        CAppData::resetForTests();
    }
    EXPECT_TRUE(read(CAppData::group(), "blob", kData).empty()); // each store has its own folder

    // The store of every product falls back on the folder of the plug-ins.
    CAppData::group().setString(CString("theme"), CString("dark"), nullptr);
    EXPECT_EQ(CAppData::global().getString(CString("theme"), CString("-")).toUtf8(), "dark");
    EXPECT_EQ(local.getString(CString("theme"), CString("-")).toUtf8(), "-");
}

TEST_F(AppDataStore, SeedsAnswerUntilTheFirstWriteAndTheFirstPlaceFoundDecides)
{
    const Seed seed("AppDataLocal_preset", "from seed");
    EXPECT_EQ(local.getString(CString("preset"), CString()).toUtf8(), "from seed");
    EXPECT_EQ(CAppData::group().getString(CString("preset"), CString("-")).toUtf8(), "-");

    local.setString(CString("preset"), CString("mine"), nullptr);
    EXPECT_EQ(local.getString(CString("preset"), CString()).toUtf8(), "mine");
    CAppData::resetForTests();
    EXPECT_EQ(local.getString(CString("preset"), CString()).toUtf8(), "mine");

    // Files beside the module come before seeds.
    const std::string besideModule = CApplication::moduleFolder().toUtf8() + "DLC-730/beside";
    writeBinaryFile(besideModule, makeBlock(kString, stringPayload("module file")));
    const Seed besideSeed("AppDataLocal_beside", "seed");
    EXPECT_EQ(local.getString(CString("beside"), CString()).toUtf8(), "module file");
    std::error_code ignored;
    std::filesystem::remove(besideModule, ignored);
    std::filesystem::remove(std::filesystem::path(besideModule).parent_path(), ignored); // only when empty

    // A cached value of another tag reads as nothing and stays.
    const Bytes data = randomBytes(40, 2);
    local.writeData(CString("mixed"), toArray(data), nullptr, kData);
    EXPECT_TRUE(read(local, "mixed", kString).empty());
    EXPECT_EQ(read(local, "mixed", kData), data);

    // A file of another tag hides the seed behind it.
    const Seed mixedSeed("AppDataLocal_mixed", "seed");
    CAppData::resetForTests();
    EXPECT_EQ(local.getString(CString("mixed"), CString("def")).toUtf8(), "def");
    EXPECT_EQ(read(local, "mixed", kData), data);

    // When the file goes bad, what the process read before stays the answer.
    writeBinaryFile(folder.local() + "mixed", Bytes{1, 2, 3});
    EXPECT_EQ(read(local, "mixed", kData, true), data);
}

TEST_F(AppDataStore, DamagedFilesCountAsAbsentAndStayAsTheyWere)
{
    const Bytes good = makeBlock(kString, stringPayload("a value long enough to be compressed somewhat"));
    Bytes altered = good;
    altered[altered.size() / 2] ^= 0x40;
    std::vector<Bytes> damaged = {Bytes(), randomBytes(300, 3), altered, makeBlock(kData, stringPayload("x"))};
    for (size_t cut : {size_t(3), size_t(11), size_t(12), good.size() / 2, good.size() - 1})
        damaged.emplace_back(good.begin(), good.begin() + long(cut));

    const Seed seed("AppDataLocal_broken", "seed");
    const std::string path = folder.local() + "broken";
    for (const Bytes& bytes : damaged) {
        writeBinaryFile(path, bytes);
        CAppData::resetForTests();
        EXPECT_EQ(local.getString(CString("broken"), CString("def")).toUtf8(), "def");
        EXPECT_TRUE(read(local, "broken", kString, true).empty());
        EXPECT_EQ(readBinaryFile(path), bytes);
    }
}

TEST_F(AppDataStore, ListenersHearWrittenKeysOnlyAndNeverFailedWrites)
{
    Heard heard, other;
    heard.attach(&local, CString("volume"));
    other.attach(&local, CString("other"));
    const uint64_t volume = local.getKeyId(CString("volume"));

    // Told on the writer's thread, with the store free again for other threads.
    std::string seenElsewhere;
    heard.onHeard = [&] {
        std::thread([&] { seenElsewhere = local.getString(CString("volume"), CString()).toUtf8(); }).join();
    };
    int source = 0;
    std::thread([&] { local.setString(CString("volume"), CString("11"), &source); }).join();
    EXPECT_EQ(heard.count, 1);
    EXPECT_EQ(heard.lastSource, uint64_t(reinterpret_cast<uintptr_t>(&source)));
    EXPECT_EQ(heard.lastKey, volume);
    EXPECT_NE(heard.thread, currentThreadId());
    EXPECT_EQ(seenElsewhere, "11");
    EXPECT_EQ(other.count, 0);
    heard.onHeard = nullptr;

    // A full disk in the middle of the write: the old file stays whole.
    const Bytes before = readBinaryFile(folder.local() + "volume");
    const Bytes big = randomBytes(200000, 4);
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    struct rlimit small = saved;
    small.rlim_cur = 65536;
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    local.writeData(CString("volume"), toArray(big), nullptr, kData);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_EQ(readBinaryFile(folder.local() + "volume"), before);
    EXPECT_EQ(read(local, "volume", kData), big); // this process goes on with the new value
    EXPECT_EQ(heard.count, 1);

    // A key whose place is taken by a folder.
    std::filesystem::create_directories(folder.local() + "other");
    local.setString(CString("other"), CString("kept in memory"), nullptr);
    EXPECT_EQ(local.getString(CString("other"), CString()).toUtf8(), "kept in memory");
    EXPECT_EQ(other.count, 0);
    EXPECT_EQ(leftoverTempFiles(folder.root), 0);
}

TEST_F(AppDataStore, AnUnusableUserFolderGivesEmptyReadsAndWritesNothing)
{
    // Tests run as root, whom permissions don't stop; a path through a file stops anyone.
    const std::string plainFile = folder.root + "plain";
    writeBinaryFile(plainFile, Bytes{'x'});
    CUserFolder::setRoot(CString::fromUtf8(plainFile + "/home/"));
    CAppData::resetForTests();

    const Seed seed("AppDataLocal_seeded", "seed");
    Heard heard;
    heard.attach(&local, CString("key"));
    EXPECT_EQ(local.getString(CString("key"), CString("def")).toUtf8(), "def");
    EXPECT_EQ(local.getString(CString("seeded"), CString()).toUtf8(), "seed"); // only read so far

    local.setString(CString("key"), CString("value"), nullptr);
    EXPECT_EQ(heard.count, 0);
    EXPECT_EQ(local.getString(CString("key"), CString("def")).toUtf8(), "def");
    EXPECT_EQ(local.getString(CString("seeded"), CString("def")).toUtf8(), "def"); // nothing once a write failed
    EXPECT_EQ(readBinaryFile(plainFile), Bytes{'x'});
}

TEST_F(AppDataStore, TwoThreadsWritingOneKeyLeaveOneWholeValue)
{
    Heard heard;
    heard.attach(&local, CString("shared"));
    const Bytes values[2] = {randomBytes(3000, 5), randomBytes(7000, 6)};
    const std::string path = folder.local() + "shared";
    constexpr int kWrites = 40;

    // Whoever looks at the file from outside sees one whole value or the other.
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread watcher([&] {
        while (!done) {
            const Bytes file = readBinaryFile(path);
            uint32_t tag = 0;
            Bytes payload;
            if (!file.empty() && (!decodeBlock(file, tag, payload) || (payload != values[0] && payload != values[1])))
                ++torn;
        }
    });
    std::vector<std::thread> writers;
    for (int w = 0; w < 2; ++w)
        writers.emplace_back([&, w] {
            for (int i = 0; i < kWrites; ++i)
                local.writeData(CString("shared"), toArray(values[w]), &values[w], kData);
        });
    for (std::thread& t : writers)
        t.join();
    done = true;
    watcher.join();

    EXPECT_EQ(torn, 0);
    EXPECT_EQ(heard.count, 2 * kWrites);
    uint32_t tag = 0;
    Bytes payload;
    ASSERT_TRUE(decodeBlock(readBinaryFile(path), tag, payload));
    EXPECT_TRUE(payload == values[0] || payload == values[1]);
    EXPECT_EQ(read(local, "shared", kData), payload);
    EXPECT_EQ(leftoverTempFiles(folder.root), 0);
}
