#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qel {

// Turns a definition source, with everything it includes, into the compiled definition
// image the plug-in loads. The source format is described at the top of main.cpp.
class CDefinitionCompiler
{
public:
    // On failure image() is empty and error() reads "path:line: message".
    bool compile(const std::string& path);

    const std::vector<uint8_t>& image() const { return m_image; }
    const std::string& error() const { return m_error; }
    // Every file the last compile read, the input first: what the image depends on.
    const std::vector<std::string>& sources() const { return m_sources; }
    // The sources as a Makefile rule for target, the form Ninja reads as a depfile.
    std::string depfile(const std::string& target) const;

    // Indices into the string pool are 16-bit.
    static constexpr size_t kMaxStrings = 65535;

private:
    std::vector<uint8_t> m_image;
    std::string m_error;
    std::vector<std::string> m_sources;
};

// The image as indented XML-like text, one node a line, for reading by people. On a
// malformed image gives back false with the reason in error.
bool dumpDefinitionImage(const std::vector<uint8_t>& image, std::string& text, std::string& error);

} // namespace qel
