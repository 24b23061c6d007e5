// presetc: the preset-list compiler. Turns a preset-list source (described at the top of
// CPresetListCompiler.h) into the compressed `alst` block that seeds an application data
// store from the module's resources.
//
//   presetc INPUT.xml -o OUTPUT
//
// Errors go to stderr and the exit status is 1; no output is written then.

#include "CPresetListCompiler.h"

#include "Audio/CAudioPresetBlock.h"
#include "Core/CByteArray.h"
#include "Core/CFileReader.h"

#include <cstdio>
#include <cstring>

using namespace qel;

namespace {

int usage()
{
    std::fprintf(stderr, "usage: presetc INPUT.xml -o OUTPUT\n");
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

CErrorPtr compile(const char* input, const char* output)
{
    CByteArray source;
    QEL_RETURN_IF_ERROR(readWhole(input, source), CString());
    CAudioPresetList list;
    QEL_RETURN_IF_ERROR(compilePresetList(reinterpret_cast<const char*>(source.data()), source.size(), list),
                        CString::fromUtf8(input));
    QEL_RETURN_IF_ERROR(CAudioPresetBlock::saveFile(list, CString::fromUtf8(output), CAudioPresetList::kTag), CString());
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4 || std::strcmp(argv[2], "-o") != 0)
        return usage();
    if (CErrorPtr error = compile(argv[1], argv[3])) {
        std::fprintf(stderr, "presetc: %s", error->text().toUtf8().c_str());
        std::remove(argv[3]);
        return 1;
    }
    return 0;
}
