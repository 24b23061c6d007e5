// defc: the definition compiler. Turns a definition source into the compiled definition
// image the plug-in loads at run time, and shows an image as text.
//
//   defc INPUT.xml -o OUTPUT [--depfile DEPFILE]   compile; the depfile lists every file read
//   defc --dump IMAGE                               print an image as indented XML-like text
//
// Errors go to stderr as "path:line: message" and the exit status is 1; no output is written.
//
// THE SOURCE
//
// A source is an XML file whose root element is <definition>. The root's attributes become
// the attributes of the image's root node and its children the root's children. Every other
// element becomes a node: its tag is the element name, its name the value of its `name`
// attribute (the empty string without one), and its other attributes stay in document order.
// An attribute with an empty value is kept: it clears what a template parameter left there.
//
// Text inside an element becomes a child <content name="content" value="TEXT"/>, placed in
// document order among the element children. Text is trimmed of leading and trailing white
// space, and text that is only white space is dropped. CDATA sections count as text.
//
// A few elements are instructions rather than nodes:
//
//   <template name="N" tag="core:object" a="1">...</template>
//     A deferred node, built by the plug-in when it instantiates the template. `name` is
//     required; `tag`, the tag of the node to instantiate, defaults to core:object. The other
//     attributes and the children form the template's body.
//
//   <fragment name="F" p="default">...</fragment>
//     Only as a child of <definition>. Defines a piece of source to reuse at compile time and
//     writes nothing itself. Fragment names are shared by every file of a compile and must be
//     unique; a fragment may be used before the place that defines it.
//
//   <use fragment="F" p="value"/>
//     Anywhere, with no content. Replaced by a copy of F's children (elements and text).
//     Inside them "$(p)" in attribute names, attribute values and text takes the use's
//     attribute p, else F's own attribute p as a default, else (for a use inside another
//     fragment's body) a parameter of the enclosing use, looked up the same way. The use's
//     own attributes, `fragment` included, are substituted in the scope the use sits in. A
//     value is inserted as it stands, never searched for "$(" again, and "$$" gives a lone
//     '$'. All this happens only inside fragment bodies: elsewhere "$(" is plain text. A
//     reference that finds no value, and a fragment that uses itself, are errors.
//
//   <include file="other.xml"/>
//     Anywhere, with no content. Inlined as the children of other.xml's <definition> (its
//     root attributes are not used); the path is taken as written, relative to the including
//     file. The included file's fragments become available to the whole compile. Including
//     a file that is already being read is an error; including one file twice is not.
//
// An attribute given twice in one element (after substitution) is an error, as is a
// template without a name and a source holding more distinct strings (65535) than the
// 16-bit indices allow.
//
// THE IMAGE (all integers little-endian, nothing aligned)
//
//   u32 count, u32 pool size, u32 offsets[count], then the string bytes: each distinct text
//   once, NUL-terminated, in ascending byte order. An offset counts from byte 8; the pool
//   size covers the offsets and the bytes. Index 0 is the empty string; the other indices
//   follow the order of first use in a depth-first walk of the nodes below.
//   Then the root node record, running to the end of the image. A record is u16 tag, u16
//   name (string indices; the root's are both 0) and a node:
//     kind 0: u8 0, u16 attribute count, per attribute u16 name and u16 value, u16 child
//             count, then the child records;
//     kind 1: u8 1, u16 class tag, u32 body length, then the body: a record whose pair is
//             (class tag, 0) and whose node is a kind 0 node with the template's content.

#include "CDefinitionCompiler.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace qel;

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: defc INPUT.xml -o OUTPUT [--depfile DEPFILE]\n"
                 "       defc --dump IMAGE\n");
    return 2;
}

bool readFile(const char* path, std::vector<uint8_t>& out)
{
    std::FILE* file = std::fopen(path, "rb");
    if (!file)
        return false;
    uint8_t buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        out.insert(out.end(), buffer, buffer + got);
    const bool failed = std::ferror(file);
    std::fclose(file);
    return !failed;
}

// A half-written file must not pass for a good one at the next build, so failures remove it.
bool writeFile(const std::string& path, const void* data, size_t size)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return false;
    const bool written = std::fwrite(data, 1, size, file) == size;
    if (std::fclose(file) == 0 && written)
        return true;
    std::remove(path.c_str());
    return false;
}

int dump(const char* path)
{
    std::vector<uint8_t> image;
    if (!readFile(path, image)) {
        std::fprintf(stderr, "%s: cannot read the file\n", path);
        return 1;
    }
    std::string text, error;
    if (!dumpDefinitionImage(image, text, error)) {
        std::fputs(text.c_str(), stdout);
        std::fprintf(stderr, "%s: %s\n", path, error.c_str());
        return 1;
    }
    std::fputs(text.c_str(), stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--dump") == 0)
        return dump(argv[2]);

    const char* input = nullptr;
    const char* output = nullptr;
    const char* depfile = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc)
            output = argv[++i];
        else if (std::strcmp(argv[i], "--depfile") == 0 && i + 1 < argc)
            depfile = argv[++i];
        else if (argv[i][0] != '-' && !input)
            input = argv[i];
        else
            return usage();
    }
    if (!input || !output)
        return usage();

    CDefinitionCompiler compiler;
    if (!compiler.compile(input)) {
        std::fprintf(stderr, "%s\n", compiler.error().c_str());
        return 1;
    }
    const std::vector<uint8_t>& image = compiler.image();
    if (!writeFile(output, image.data(), image.size())) {
        std::fprintf(stderr, "%s: cannot write the file\n", output);
        return 1;
    }
    if (depfile) {
        const std::string rule = compiler.depfile(output);
        if (!writeFile(depfile, rule.data(), rule.size())) {
            std::fprintf(stderr, "%s: cannot write the file\n", depfile);
            return 1;
        }
    }
    return 0;
}
