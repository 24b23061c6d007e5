// presetc: the preset compiler. Turns a preset source (described at the top of
// CPresetListCompiler.h) into the compressed block a module embeds: an `alst` list that
// seeds an application data store, or an `abnk` bank.
//
//   presetc INPUT.xml -o OUTPUT [--definition IMAGE [--resource NAME=FILE]...]
//
// --definition loads a compiled definition and checks every entry against the parameter
// it names. Loading it may read the module's resources (a parameter's state names come
// from a store's seed): --resource makes FILE readable as the resource NAME meanwhile.
// The stores are read from an empty folder of the tool's own, never the user's.
//
// Errors go to stderr and the exit status is 1; no output is written then.

#include "CPresetListCompiler.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioPresetBlock.h"
#include "Core/CApplication.h"
#include "Core/CByteArray.h"
#include "Core/CCoreCreators.h"
#include "Core/CFileReader.h"
#include "Core/CLog.h"
#include "Core/CUserFolder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using namespace qel;

namespace {

int usage()
{
    std::fprintf(stderr, "usage: presetc INPUT.xml -o OUTPUT [--definition IMAGE [--resource NAME=FILE]...]\n");
    return 2;
}

CErrorPtr readWhole(const char* path, CByteArray& out)
{
    CFileReader reader;
    QEL_RETURN_IF_ERROR(reader.open(CString::fromUtf8(path), false), CString::fromUtf8(path));
    uint8_t buffer[65536];
    for (;;) {
        size_t got = sizeof buffer;
        QEL_RETURN_IF_ERROR(reader.readStreamed(buffer, got), CString::fromUtf8(path));
        if (got == 0)
            break;
        out.append(buffer, got);
    }
    return reader.close();
}

// What the definition's loading logs; shown when it fails.
class CCollectingSink : public ILogSink
{
public:
    void logText(const char* text, bool lineEnd) override
    {
        lines.append(text);
        if (lineEnd)
            lines.append("\n");
    }
    std::string lines;
};

struct CResourceFile
{
    std::string name;
    // The u32 byte count, then the bytes, as a resource row points at them.
    std::vector<uint8_t> block;
};

struct COptions
{
    const char* input = nullptr;
    const char* output = nullptr;
    const char* definition = nullptr;
    std::vector<std::pair<std::string, std::string>> resources;
};

bool parseArguments(int argc, char** argv, COptions& out)
{
    if (argc < 4 || std::strcmp(argv[2], "-o") != 0)
        return false;
    out.input = argv[1];
    out.output = argv[3];
    for (int i = 4; i < argc; i += 2) {
        if (i + 1 >= argc)
            return false;
        if (std::strcmp(argv[i], "--definition") == 0 && !out.definition) {
            out.definition = argv[i + 1];
        } else if (std::strcmp(argv[i], "--resource") == 0) {
            const std::string pair = argv[i + 1];
            const size_t equals = pair.find('=');
            if (equals == 0 || equals == std::string::npos || equals + 1 == pair.size())
                return false;
            out.resources.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
        } else {
            return false;
        }
    }
    return out.definition || out.resources.empty();
}

// The application with the definition as its shared tree; the caller finalizes it.
CErrorPtr loadDefinition(const COptions& options, std::vector<CResourceFile>& files, const CObject*& outRoot)
{
    files.reserve(options.resources.size() + 1);
    for (const auto& [name, path] : options.resources) {
        CByteArray bytes;
        QEL_RETURN_IF_ERROR(readWhole(path.c_str(), bytes), CString());
        CResourceFile file;
        file.name = name;
        const uint32_t size = uint32_t(bytes.size());
        for (int i = 0; i < 4; ++i)
            file.block.push_back(uint8_t(size >> (8 * i)));
        file.block.insert(file.block.end(), bytes.data(), bytes.data() + bytes.size());
        files.push_back(std::move(file));
    }
    CByteArray image;
    QEL_RETURN_IF_ERROR(readWhole(options.definition, image), CString());
    std::vector<CResourceRow> rows;
    for (const CResourceFile& file : files)
        rows.push_back({file.block.data(), file.name.c_str()});
    rows.push_back({nullptr, nullptr});

    CCollectingSink sink;
    ILogSink* before = CLog::setSink(&sink);
    CErrorPtr error = CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, rows.data(),
                                            CString::fromUtf8(options.definition));
    CLog::setSink(before);
    QEL_RETURN_IF_ERROR(std::move(error), CString());
    outRoot = CApplication::sharedRoot();
    // The shared tree stands as far as it could be read, and only a whole load logs its
    // time; otherwise the log says why.
    const std::string loaded = std::string("loadXMLData \"") + options.definition + "\" init time";
    if (!outRoot || sink.lines.find(loaded) == std::string::npos)
        return QEL_ERROR(CString::fromUtf8(sink.lines.c_str()),
                         "@qelstr_presetc_loadDefinition_NotLoaded The definition '%1' could not be loaded.",
                         CString::fromUtf8(options.definition));
    return nullptr;
}

CErrorPtr compile(const COptions& options, const CObject* definitionRoot)
{
    CByteArray source;
    QEL_RETURN_IF_ERROR(readWhole(options.input, source), CString());
    CCompiledPresets compiled;
    QEL_RETURN_IF_ERROR(compilePresets(reinterpret_cast<const char*>(source.data()), source.size(), compiled, definitionRoot),
                        CString::fromUtf8(options.input));
    const CString output = CString::fromUtf8(options.output);
    if (compiled.isBank)
        QEL_RETURN_IF_ERROR(CAudioPresetBlock::saveFile(compiled.bank, output, CAudioPresetBank::kTag), CString());
    else
        QEL_RETURN_IF_ERROR(CAudioPresetBlock::saveFile(CAudioPresetList(compiled.bank), output, CAudioPresetList::kTag),
                            CString());
    return nullptr;
}

// An empty folder of the tool's own in place of the user's, for the stores the
// definition's loading reads; removed on the way out.
class CScratchUserFolder
{
public:
    bool make()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "presetc-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            return false;
        m_folder = pattern;
        CUserFolder::setRoot(CString::fromUtf8(m_folder + "/"));
        return true;
    }
    ~CScratchUserFolder()
    {
        std::error_code ignored;
        if (!m_folder.empty())
            std::filesystem::remove_all(m_folder, ignored);
    }

private:
    std::string m_folder;
};

int fail(const CErrorPtr& error, const char* output)
{
    std::fprintf(stderr, "presetc: %s", error->text().toUtf8().c_str());
    std::remove(output);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    COptions options;
    if (!parseArguments(argc, argv, options))
        return usage();
    CLog::setFileName(CString());
    CScratchUserFolder folder;
    std::vector<CResourceFile> files;
    const CObject* definitionRoot = nullptr;
    if (options.definition) {
        if (!folder.make()) {
            std::fprintf(stderr, "presetc: no scratch folder for the stores\n");
            return 1;
        }
        if (CErrorPtr error = loadDefinition(options, files, definitionRoot)) {
            CApplication::finalize();
            return fail(error, options.output);
        }
    }
    CErrorPtr error = compile(options, definitionRoot);
    if (options.definition)
        CApplication::finalize();
    if (error)
        return fail(error, options.output);
    return 0;
}
