#include "Core/CAppData.h"

#include "Core/CApplication.h"
#include "Core/CFileReader.h"
#include "Core/CFileWriter.h"
#include "Core/CMemoryReader.h"
#include "Core/CResourceRegistry.h"
#include "Core/CThreadId.h"
#include "Core/CUserFolder.h"
#include "Core/CWriteSeqBuffer.h"

#include <atomic>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace qel {
namespace {

// Part of every temporary file's name; with the process and thread ids it keeps the names
// apart even between copies of the module loaded into one process.
std::atomic<uint64_t> s_writeCounter{0};

} // namespace

CAppDataGlobal::CAppDataGlobal()
    : CAppData("global", "Quelmar/", "", "AppDataGlobal_", "Quelmar/Audio Plug-Ins/")
{
}

CAppDataGroup::CAppDataGroup() : CAppData("group", "Quelmar/Audio Plug-Ins/", "", "AppDataGroup_", "") {}

CAppDataLocal::CAppDataLocal()
    : CAppData("local", "Quelmar/Audio Plug-Ins/DLC-730/", "DLC-730/", "AppDataLocal_", "")
{
}

CAppData::CAppData(const char* storageType, const char* dirName, const char* localSubFolder,
                   const char* resourcePrefix, const char* altDir)
    : m_storageType(storageType), m_dirName(dirName), m_localSubFolder(localSubFolder),
      m_resourcePrefix(resourcePrefix), m_altDir(altDir)
{
}

CAppData& CAppData::global()
{
    static CAppDataGlobal s_store;
    return s_store;
}

CAppData& CAppData::group()
{
    static CAppDataGroup s_store;
    return s_store;
}

CAppData& CAppData::local()
{
    static CAppDataLocal s_store;
    return s_store;
}

CAppData* CAppData::byStorageType(const CString& storageType)
{
    if (storageType == CString("local"))
        return &local();
    if (storageType == CString("group"))
        return &group();
    if (storageType == CString("global"))
        return &global();
    return nullptr;
}

void CAppData::resetForTests()
{
    for (CAppData* store : {&global(), &group(), &local()}) {
        CLockGuard guard(store->m_lock);
        store->reset();
    }
}

void CAppData::reset()
{
    m_primaryPath = CString();
    m_secondaryPath = CString();
    m_thirdPath = CString();
    m_pathsDone = false;
    m_directoryChecked = false;
    m_directoryOk = false;
    m_keyCounter = 0;
    m_keys.clear();
    m_cache.clear();
}

bool CAppData::makePaths()
{
    if (m_pathsDone)
        return !m_primaryPath.isEmpty();
    // Tried once: without a user folder the store stays unusable for the process.
    m_pathsDone = true;
    const CString user = CUserFolder::path();
    if (user.isEmpty())
        return false;
    m_primaryPath = user + m_dirName;
    // The folder common to all users is the user's own on this system, so the primary
    // path already covers it.
    m_secondaryPath = CString();
    m_thirdPath = m_altDir.isEmpty() ? CString() : user + m_altDir;
    return true;
}

uint64_t CAppData::keyId(const CString& name)
{
    auto it = m_keys.find(name);
    if (it != m_keys.end())
        return it->second;
    const uint64_t id = ++m_keyCounter;
    m_keys.emplace(name, id);
    return id;
}

uint64_t CAppData::getKeyId(const CString& name)
{
    CLockGuard guard(m_lock);
    return keyId(name);
}

uint64_t CAppData::getListenKey(uintptr_t context)
{
    const auto* name = reinterpret_cast<const CString*>(context);
    return name ? getKeyId(*name) : 0;
}

bool CAppData::readStored(const CString& key, uint32_t tag, CByteArray& out)
{
    const CString module = CApplication::moduleFolder();
    const CString folders[] = {m_primaryPath, m_secondaryPath, m_thirdPath,
                               module.isEmpty() ? CString() : module + m_localSubFolder};
    CFileReader file;
    CMemoryReader seed;
    CInputStream* source = nullptr;
    for (const CString& folder : folders) {
        if (folder.isEmpty())
            continue;
        if (CErrorPtr absent = file.open(folder + key, false))
            continue;
        source = &file;
        break;
    }
    if (!source) {
        // Seeds come from the module only, never from a file that happens to bear their
        // name in the working folder.
        const uint8_t* data = nullptr;
        size_t size = 0;
        if (!CResourceRegistry::find(m_resourcePrefix + key, data, size))
            return false;
        seed.setData(data, size);
        source = &seed;
    }
    // The first place that has the key decides: a damaged or foreign file there reads as
    // nothing rather than bringing back an older value from further down the list.
    CErrorPtr damaged = source->readCompressedData(out, tag);
    return !damaged;
}

void CAppData::readData(const CString& key, CByteArray& outBytes, uint32_t tag, bool bypassCache)
{
    outBytes.clear();
    CLockGuard guard(m_lock);
    if (!m_pathsDone && !makePaths())
        m_directoryChecked = true;
    if (m_directoryChecked && !m_directoryOk)
        return;

    const uint64_t id = keyId(key);
    auto cached = m_cache.find(id);
    if (cached != m_cache.end() && !bypassCache) {
        if (cached->second.tag == tag)
            outBytes = cached->second.bytes;
        return;
    }
    CByteArray bytes;
    if (readStored(key, tag, bytes)) {
        CCached& entry = m_cache[id];
        entry.tag = tag;
        entry.bytes = bytes;
        outBytes = std::move(bytes);
        return;
    }
    // What this process already knows stays the answer when the file can't be read.
    if (cached != m_cache.end() && cached->second.tag == tag)
        outBytes = cached->second.bytes;
}

bool CAppData::writeFile(const CString& key, const CByteArray& bytes, uint32_t tag)
{
    // Written aside and renamed over the old file only once it is complete and on the
    // disk: a crash or a full disk leaves either the old value or the new, never a torn
    // file, and two writers of one key (in any processes) simply replace each other.
    const CString target = m_primaryPath + key;
    const int slash = target.findLast('/');
    CString temp = target.substring(0, slash + 1);
    temp.append('.');
    temp.append(target.substring(slash + 1));
    temp.append('.');
    temp.append(CString::number(int64_t(::getpid())));
    temp.append('.');
    temp.append(CString::number(int64_t(currentThreadId())));
    temp.append('.');
    temp.append(CString::number(int64_t(++s_writeCounter)));
    temp.append(".tmp");

    const std::string tempPath = temp.toUtf8();
    CFileWriter writer;
    CErrorPtr error = writer.open(temp, false);
    if (!error)
        error = writer.writeCompressedData(bytes, tag);
    if (!error)
        error = writer.sync();
    CErrorPtr closeError = writer.close();
    if (!error && !closeError && ::rename(tempPath.c_str(), target.toUtf8().c_str()) == 0)
        return true;
    ::unlink(tempPath.c_str());
    return false;
}

void CAppData::writeData(const CString& key, const CByteArray& bytes, const void* source, uint32_t tag)
{
    uint64_t id = 0;
    {
        CLockGuard guard(m_lock);
        if (!m_directoryChecked) {
            m_directoryChecked = true;
            m_directoryOk = makePaths() && CUserFolder::ensureFolder(m_primaryPath);
        }
        if (!m_directoryOk)
            return;
        id = keyId(key);
        CCached& entry = m_cache[id];
        entry.tag = tag;
        entry.bytes = bytes;
        const bool cachedWhole = entry.bytes.size() == bytes.size();
        if (!writeFile(key, bytes, tag) || !cachedWhole)
            return;
    }
    const CUpdateMessage message{uint64_t(reinterpret_cast<uintptr_t>(source)), id};
    notify(&message);
}

CString CAppData::getString(const CString& key, const CString& defaultValue)
{
    CByteArray bytes;
    readData(key, bytes, kTagString, false);
    if (bytes.isEmpty())
        return defaultValue;
    CMemoryReader reader(bytes.data(), bytes.size());
    CString value;
    if (CErrorPtr damaged = reader.readString(value))
        return defaultValue;
    return value;
}

void CAppData::setString(const CString& key, const CString& value, const void* source)
{
    CWriteSeqBuffer buffer;
    CByteArray bytes;
    if (CErrorPtr error = buffer.writeString(value))
        return;
    if (CErrorPtr error = buffer.toArray(bytes))
        return;
    writeData(key, bytes, source, kTagString);
}

} // namespace qel
