#pragma once

// Reading files back in tests, independently of the product's own readers.

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace qel::test {

inline std::string readTextFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::vector<uint8_t> readBinaryFile(const std::string& path)
{
    const std::string text = readTextFile(path);
    return std::vector<uint8_t>(text.begin(), text.end());
}

} // namespace qel::test
