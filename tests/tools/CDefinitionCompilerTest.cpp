#include "defc/CDefinitionCompiler.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using qel::CDefinitionCompiler;

namespace {

// Reads an image on its own terms and renders the tree compactly: tag#name(a=1,b=)[children],
// a template as template#name=>classTag(...)[...]. Along the way it checks the pool (sorted,
// distinct, packed) and that indices appear in the order of first use.
class ImageReader
{
public:
    explicit ImageReader(const std::vector<uint8_t>& image) : m_image(image) {}

    std::string read()
    {
        const uint32_t count = u32(), poolSize = u32();
        std::vector<uint32_t> offsets;
        for (uint32_t i = 0; i < count; ++i)
            offsets.push_back(u32());
        size_t next = 4 * size_t(count);
        std::vector<std::string> sorted;
        while (next < poolSize && 8 + next < m_image.size()) {
            sorted.emplace_back(reinterpret_cast<const char*>(&m_image[8 + next]));
            next += sorted.back().size() + 1;
        }
        EXPECT_EQ(next, poolSize) << "the strings fill the pool exactly";
        EXPECT_EQ(sorted.size(), count);
        for (size_t i = 1; i < sorted.size(); ++i)
            EXPECT_LT(sorted[i - 1], sorted[i]) << "ascending and distinct";
        for (uint32_t offset : offsets) {
            EXPECT_LT(offset, poolSize);
            m_strings.emplace_back(offset < poolSize ? reinterpret_cast<const char*>(&m_image[8 + offset]) : "");
        }
        EXPECT_TRUE(count > 0 && m_strings[0].empty());
        m_seen.assign(count, false);
        m_seen[0] = true;

        m_pos = 8 + size_t(poolSize);
        EXPECT_EQ(string(), "");
        EXPECT_EQ(string(), "");
        EXPECT_EQ(get(1, m_image.size()), 0u) << "the root's kind";
        std::string tree = node(m_image.size(), "", "");
        EXPECT_EQ(m_pos, m_image.size());
        EXPECT_EQ(m_nextNew, count) << "every string is used";
        return tree;
    }

private:
    uint32_t get(size_t bytes, size_t end)
    {
        uint32_t value = 0;
        if (m_pos + bytes > end) {
            ADD_FAILURE() << "read past the end at " << m_pos;
            m_pos = end;
            return 0;
        }
        for (size_t i = 0; i < bytes; ++i)
            value |= uint32_t(m_image[m_pos++]) << (8 * i);
        return value;
    }
    uint32_t u32() { return get(4, m_image.size()); }

    std::string string(size_t end = SIZE_MAX)
    {
        const uint32_t index = get(2, std::min(end, m_image.size()));
        if (index >= m_strings.size()) {
            ADD_FAILURE() << "index " << index << " out of range";
            return "?";
        }
        if (!m_seen[index]) {
            EXPECT_EQ(index, m_nextNew) << "first use of '" << m_strings[index] << "'";
            m_seen[index] = true;
            ++m_nextNew;
        }
        return m_strings[index];
    }

    std::string record(size_t end)
    {
        const std::string tag = string(end), name = string(end);
        if (get(1, end) == 0)
            return node(end, tag, name);
        const std::string classTag = string(end);
        const uint32_t length = get(4, end);
        const size_t bodyEnd = m_pos + length;
        EXPECT_EQ(string(bodyEnd), classTag);
        EXPECT_EQ(string(bodyEnd), "");
        EXPECT_EQ(get(1, bodyEnd), 0u);
        const std::string body = node(bodyEnd, "=>" + classTag, "");
        EXPECT_EQ(m_pos, bodyEnd) << "template body length";
        return tag + "#" + name + body;
    }

    std::string node(size_t end, const std::string& tag, const std::string& name)
    {
        std::string text = tag + (name.empty() ? "" : "#" + name);
        const uint32_t attributes = get(2, end);
        for (uint32_t i = 0; i < attributes; ++i) {
            text += i ? "," : "(";
            text += string(end);
            text += '=';
            text += string(end);
        }
        text += attributes ? ")" : "";
        const uint32_t children = get(2, end);
        for (uint32_t i = 0; i < children; ++i) {
            text += i ? ' ' : '[';
            text += record(end);
        }
        return text + (children ? "]" : "");
    }

    const std::vector<uint8_t>& m_image;
    size_t m_pos = 0;
    std::vector<std::string> m_strings;
    std::vector<bool> m_seen;
    uint32_t m_nextNew = 1;
};

class DefinitionCompiler : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // The space checks that depfiles escape it.
        std::string pattern = (std::filesystem::temp_directory_path() / "qel defc-XXXXXX").string();
        ASSERT_TRUE(mkdtemp(pattern.data()));
        m_dir = pattern + "/";
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    void write(const std::string& name, const std::string& text)
    {
        std::filesystem::create_directories(std::filesystem::path(m_dir + name).parent_path());
        std::FILE* file = std::fopen((m_dir + name).c_str(), "wb");
        ASSERT_TRUE(file);
        std::fwrite(text.data(), 1, text.size(), file);
        std::fclose(file);
    }

    // The compact tree of name's image, or "error: " and the message with the folder cut out.
    std::string compile(const std::string& name)
    {
        if (!m_compiler.compile(m_dir + name)) {
            std::string error = m_compiler.error();
            for (size_t at; (at = error.find(m_dir)) != std::string::npos;)
                error.erase(at, m_dir.size());
            return "error: " + error;
        }
        return ImageReader(m_compiler.image()).read();
    }

    std::string m_dir;
    CDefinitionCompiler m_compiler;
};

TEST_F(DefinitionCompiler, ExactBytesOfASmallImageAndItsDump)
{
    write("a.xml", "<definition><b name='x' k='a'/><a b='k'/></definition>");
    ASSERT_EQ(compile("a.xml"), "[b#x(k=a) a(b=k)]");
    // Indices by first use: "" b x k a; bytes in order: "" a b k x. The second element
    // only reuses strings.
    const std::vector<uint8_t> expected = {
        5, 0, 0, 0, 29, 0, 0, 0,                                  // count, pool size
        20, 0, 0, 0, 23, 0, 0, 0, 27, 0, 0, 0, 25, 0, 0, 0, 21, 0, 0, 0, // offsets by index
        0, 'a', 0, 'b', 0, 'k', 0, 'x', 0,                        // string bytes
        0, 0, 0, 0, 0, 0, 0, 2, 0,                                // root: (0,0), kind, 0 attributes, 2 children
        1, 0, 2, 0, 0, 1, 0, 3, 0, 4, 0, 0, 0,                    // b#x, k=a
        4, 0, 0, 0, 0, 1, 0, 1, 0, 3, 0, 0, 0,                    // a, b=k
    };
    EXPECT_EQ(m_compiler.image(), expected);

    std::string text, error;
    ASSERT_TRUE(qel::dumpDefinitionImage(expected, text, error)) << error;
    EXPECT_EQ(text, "<!-- 5 strings, pool of 29 bytes, image of 72 bytes -->\n"
                    "<definition>\n  <b name=\"x\" k=\"a\"/>\n  <a b=\"k\"/>\n</definition>\n");
    const std::vector<uint8_t> cut(expected.begin(), expected.end() - 1);
    EXPECT_FALSE(qel::dumpDefinitionImage(cut, text, error));
    EXPECT_EQ(error, "malformed image at offset 70: cut short");
}

TEST_F(DefinitionCompiler, TemplatesTextAndEmptyValues)
{
    write("a.xml", R"~(<definition version="2">
  <panel name="main" w="10" clear="">
    Hello <b/> world &amp; more
    <![CDATA[ <raw> ]]>
  </panel>
  <template name="plugin" a="1"><knob name="k" z=""/></template>
  <template name="view" tag="ui:view"/>
</definition>)~");
    EXPECT_EQ(compile("a.xml"), "(version=2)[panel#main(w=10,clear=)[content#content(value=Hello) b "
                                "content#content(value=world & more) content#content(value=<raw>)] "
                                "template#plugin=>core:object(a=1)[knob#k(z=)] template#view=>ui:view]");
}

TEST_F(DefinitionCompiler, FragmentsWithParametersDefaultsAndNesting)
{
    // Uses come before the definitions; the inner fragment sees the outer use's x.
    write("a.xml", R"~(<definition>
  <use fragment="row" label="Gain"/>
  <use fragment="pair" x="7"/>
  <fragment name="row" label="?" unit="dB">
    <knob name="$(label)" unit="$(unit)" on-$(label)="$$(x)">$(label) in $(unit)</knob>
  </fragment>
  <fragment name="pair">
    <use fragment="row" label="L$(x)"/>
    text $(x)
    <use fragment="inner" y=""/>
  </fragment>
  <fragment name="inner" y="no"><v x="$(x)" y="$(y)"/></fragment>
</definition>)~");
    EXPECT_EQ(compile("a.xml"), "[knob#Gain(unit=dB,on-Gain=$(x))[content#content(value=Gain in dB)] "
                                "knob#L7(unit=dB,on-L7=$(x))[content#content(value=L7 in dB)] "
                                "content#content(value=text 7) v(x=7,y=)]");
}

TEST_F(DefinitionCompiler, IncludesAndDepfile)
{
    write("main.xml", R"~(<definition>
  <a><include file="sub/parts.xml"/></a>
  <include file="common.xml"/>
  <use fragment="dot" c="red"/>
</definition>)~");
    write("sub/parts.xml", "<definition unused='1'><p/><include file='../common.xml'/></definition>");
    write("common.xml", "<definition><fragment name='dot' c='black'><dot c='$(c)'/></fragment><q/></definition>");
    EXPECT_EQ(compile("main.xml"), "[a[p q] q dot(c=red)]");

    std::string dir = m_dir;
    dir.replace(dir.find(' '), 1, "\\ ");
    EXPECT_EQ(m_compiler.depfile("out/x$"), "out/x$$: \\\n  " + dir + "main.xml \\\n  " + dir + "sub/parts.xml \\\n  " +
                                                dir + "common.xml\n");
}

TEST_F(DefinitionCompiler, ErrorsNameFileAndLine)
{
    write("parse.xml", "<definition>\n<a>\n</definition>\n");
    EXPECT_EQ(compile("parse.xml"), "error: parse.xml:3: Start-end tags mismatch");
    write("unknown.xml", "<definition>\n\n<use fragment='nope'/></definition>");
    EXPECT_EQ(compile("unknown.xml"), "error: unknown.xml:3: unknown fragment 'nope'");
    write("param.xml", "<definition>\n<fragment name='f'><a v='$(p)'/></fragment>\n<x>\n<use fragment='f'/></x>\n"
                       "</definition>");
    EXPECT_EQ(compile("param.xml"), "error: param.xml:4: no value for $(p) in fragment 'f' (param.xml:2)");
    write("loop.xml", "<definition><use fragment='f'/>\n<fragment name='f'><use fragment='g'/></fragment>\n"
                      "<fragment name='g'><b/>\n<use fragment='f'/></fragment></definition>");
    EXPECT_EQ(compile("loop.xml"), "error: loop.xml:4: fragment 'f' uses itself: f -> g -> f");
    write("cycle.xml", "<definition>\n<include file='cycle2.xml'/></definition>");
    write("cycle2.xml", "<definition>\n\n<include file='cycle.xml'/></definition>");
    EXPECT_EQ(compile("cycle.xml"), "error: cycle2.xml:3: include cycle: cycle.xml -> cycle2.xml -> cycle.xml");
    write("missing.xml", "<definition>\n<include file='none.xml'/></definition>");
    EXPECT_EQ(compile("missing.xml"), "error: missing.xml:2: cannot read included file 'none.xml'");
    write("nameless.xml", "<definition>\n<a>\n<template a='1'/></a></definition>");
    EXPECT_EQ(compile("nameless.xml"), "error: nameless.xml:3: template without a name");
    write("nested.xml", "<definition><a>\n<fragment name='f'/></a></definition>");
    EXPECT_EQ(compile("nested.xml"), "error: nested.xml:2: a fragment must be a child of <definition>");
    write("twice.xml", "<definition><fragment name='f' a=''><b $(a)='1' c='2'/></fragment>\n"
                       "<use fragment='f' a='c'/></definition>");
    EXPECT_EQ(compile("twice.xml"), "error: twice.xml:1: attribute 'c' given twice");

    // Exactly as many distinct strings as 16-bit indices allow, then one more.
    std::string many = "<definition>\n";
    for (int i = 0; i < 32766; ++i)
        many += "<e a" + std::to_string(i) + "='v" + std::to_string(i) + "'/>\n";
    write("full.xml", many + "<f/></definition>");
    EXPECT_EQ(compile("full.xml").substr(0, 12), "[e(a0=v0) e(");
    EXPECT_EQ(m_compiler.image()[0] | m_compiler.image()[1] << 8, int(CDefinitionCompiler::kMaxStrings));
    write("over.xml", many + "<f g=''/></definition>");
    EXPECT_EQ(compile("over.xml"), "error: over.xml:32768: more than 65535 distinct strings");
}

} // namespace
