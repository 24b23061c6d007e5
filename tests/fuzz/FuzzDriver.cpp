// Runs a fuzz target without libFuzzer, so every build replays the checked-in seeds.
// Each file goes in whole and then cut at every length, because a cut-off file is the
// damage the product meets most. Every input lies in a heap block of exactly its size,
// so a sanitizer build catches a read past its end.
//
//   fuzz_NAME_seeds PATH...    PATH is a file or a folder of files (searched recursively)
//
// Arguments starting with '-' are left to libFuzzer and ignored here.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

bool readFile(const fs::path& path, std::vector<uint8_t>& out)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

void runOne(const uint8_t* data, size_t size)
{
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
    std::copy(data, data + size, copy.get());
    LLVMFuzzerTestOneInput(copy.get(), size);
}

// The files an argument names, sorted so runs are repeatable; false if it can't be read.
bool collect(const fs::path& path, std::vector<fs::path>& files)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error)
        return false;
    if (fs::is_regular_file(status)) {
        files.push_back(path);
        return true;
    }
    if (!fs::is_directory(status))
        return false;
    std::vector<fs::path> found;
    fs::recursive_directory_iterator it(path, error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_regular_file(error))
            found.push_back(it->path());
    }
    if (error)
        return false;
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<fs::path> files;
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-')
            continue;
        if (!collect(argv[i], files)) {
            std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[i]);
            status = 1;
        }
    }
    // A seed run that finds nothing to run would pass without testing anything.
    if (files.empty()) {
        std::fprintf(stderr, "%s: no input files\n", argv[0]);
        return 1;
    }

    size_t inputs = 0;
    for (const fs::path& file : files) {
        std::vector<uint8_t> bytes;
        if (!readFile(file, bytes)) {
            std::fprintf(stderr, "%s: cannot read %s\n", argv[0], file.string().c_str());
            status = 1;
            continue;
        }
        runOne(bytes.data(), bytes.size());
        ++inputs;
        for (size_t length = 0; length < bytes.size(); ++length) {
            runOne(bytes.data(), length);
            ++inputs;
        }
    }
    std::printf("%s: ran %zu inputs from %zu files\n", argv[0], inputs, files.size());
    return status;
}
