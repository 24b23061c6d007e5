#pragma once

#include "Core/CByteArray.h"
#include "Core/CCriticalSection.h"
#include "Core/CDataTag.h"
#include "Core/CMap.h"
#include "Core/CString.h"
#include "Core/CUpdateNotifier.h"

#include <cstdint>

namespace qel {

// Small named values the product keeps for the user between sessions and shares between
// all its instances in the process: settings, lists, presets. Each value lives in its own
// file, a compressed block whose tag says what it holds, under one folder of the user
// folder. New data is only ever written there; reading falls back to older places and to
// seeds shipped with the module, so a fresh installation starts with sensible values.
//
// There are three stores, for this plug-in alone ("local"), for the plug-ins of the maker
// ("group") and for every product of the maker ("global"). They live as long as the
// process and remember every value once read or written.
//
// Any thread. File work happens under the store's lock; listeners are told on the writing
// thread after that lock is left, and only about the key written.
class CAppData : public CUpdateNotifier
{
public:
    static constexpr uint32_t kTagString = makeTag("dstr"); // a string in the stream's form
    static constexpr uint32_t kTagList = makeTag("alst");
    static constexpr uint32_t kTagData = makeTag("adat");
    static constexpr uint32_t kTagPresets = makeTag("aprs");

    static CAppData& global();
    static CAppData& group();
    static CAppData& local();
    // "local", "group" or "global"; null for anything else.
    static CAppData* byStorageType(const CString& storageType);

    // Forgets the paths, the folder check, the keys and everything read or written, in all
    // three stores, as at the start of a process. Only for tests that move the user
    // folder; nobody may listen to a store meanwhile.
    static void resetForTests();

    const CString& storageType() const { return m_storageType; }
    // The key's id, made on first use: 1, 2, 3... in the order names are first seen.
    uint64_t getKeyId(const CString& name);
    // The context is a `const CString*`, the name of the key to listen to.
    uint64_t getListenKey(uintptr_t context) override;

    // Empty bytes when nothing is stored under the key with this tag, or the data cannot be
    // read. With bypassCache the file is read again even if the key was seen before.
    void readData(const CString& key, CByteArray& outBytes, uint32_t tag, bool bypassCache);
    // Stores the bytes and tells the key's listeners, passing `source` (opaque; a listener
    // may recognise its own writes by it). A failure is silent: the process keeps the new
    // value, the file keeps the old one, and no listener is told.
    void writeData(const CString& key, const CByteArray& bytes, const void* source, uint32_t tag);

    CString getString(const CString& key, const CString& defaultValue);
    void setString(const CString& key, const CString& value, const void* source);

protected:
    CAppData(const char* storageType, const char* dirName, const char* localSubFolder, const char* resourcePrefix,
             const char* altDir);

private:
    struct CCached
    {
        uint32_t tag = 0;
        CByteArray bytes;
    };

    // These run with m_lock held.
    bool makePaths();
    uint64_t keyId(const CString& name);
    bool readStored(const CString& key, uint32_t tag, CByteArray& out);
    bool writeFile(const CString& key, const CByteArray& bytes, uint32_t tag);
    void reset();

    const CString m_storageType;
    const CString m_dirName;
    const CString m_localSubFolder;
    const CString m_resourcePrefix;
    const CString m_altDir;

    CCriticalSection m_lock;
    CString m_primaryPath;
    CString m_secondaryPath;
    CString m_thirdPath;
    bool m_pathsDone = false;
    bool m_directoryChecked = false;
    bool m_directoryOk = false;
    uint64_t m_keyCounter = 0;
    CMap<CString, uint64_t> m_keys;
    CMap<uint64_t, CCached> m_cache;
};

// The three stores; only CAppData makes them, once each.
class CAppDataGlobal : public CAppData
{
    friend class CAppData;
    CAppDataGlobal();
};

class CAppDataGroup : public CAppData
{
    friend class CAppData;
    CAppDataGroup();
};

class CAppDataLocal : public CAppData
{
    friend class CAppData;
    CAppDataLocal();
};

// Hears the writes of one key of a store.
template <class T>
class CAppDataListener : public COwnedUpdateListener<T>
{
public:
    explicit CAppDataListener(T* owner = nullptr) : COwnedUpdateListener<T>(owner) {}

    void attach(CAppData* store, const CString& keyName)
    {
        this->setNotifier(store, reinterpret_cast<uintptr_t>(&keyName));
    }
    void detach() { this->setNotifier(nullptr, 0); }
};

} // namespace qel
