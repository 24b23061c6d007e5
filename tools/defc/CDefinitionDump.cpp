#include "CDefinitionCompiler.h"

namespace qel {

namespace {

// Deeper than any real definition, shallow enough for the stack.
constexpr int kMaxDepth = 1000;

std::string escaped(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
                out += "&#" + std::to_string(int(c)) + ";";
            else
                out += c;
        }
    }
    return out;
}

// Walks the image checking every bound, since a dump is most wanted for an image gone wrong.
class ImageDumper
{
public:
    ImageDumper(const std::vector<uint8_t>& image, std::string& text, std::string& error)
        : m_image(image), m_text(text), m_error(error)
    {
    }

    bool run()
    {
        m_text.clear();
        size_t pos = 0;
        uint32_t count = 0, poolSize = 0;
        if (!u32(pos, m_image.size(), count) || !u32(pos, m_image.size(), poolSize))
            return false;
        const size_t poolEnd = 8 + size_t(poolSize);
        if (poolEnd > m_image.size() || 4 * size_t(count) > poolSize)
            return fail(4, "pool size does not fit");
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t offset = 0;
            if (!u32(pos, poolEnd, offset))
                return false;
            size_t end = 8 + size_t(offset);
            if (offset < 4 * count || end >= poolEnd)
                return fail(pos - 4, "string offset outside the pool");
            while (end < poolEnd && m_image[end] != 0)
                ++end;
            if (end == poolEnd)
                return fail(8 + offset, "string without its NUL");
            m_strings.emplace_back(reinterpret_cast<const char*>(m_image.data()) + 8 + offset, end - 8 - offset);
        }
        if (count == 0 || !m_strings[0].empty())
            return fail(8, "string 0 is not empty");
        m_text = "<!-- " + std::to_string(count) + " strings, pool of " + std::to_string(poolSize) +
                 " bytes, image of " + std::to_string(m_image.size()) + " bytes -->\n";

        pos = poolEnd;
        const size_t rootAt = pos;
        std::string tag, name;
        if (!string(pos, m_image.size(), tag) || !string(pos, m_image.size(), name))
            return false;
        if (!tag.empty() || !name.empty())
            return fail(rootAt, "the root's pair is not empty");
        uint8_t kind = 0;
        if (!u8(pos, m_image.size(), kind))
            return false;
        if (kind != 0)
            return fail(pos - 1, "the root is not an ordinary node");
        if (!node(pos, m_image.size(), 0, "definition", name))
            return false;
        if (pos != m_image.size())
            return fail(pos, "bytes after the root");
        return true;
    }

private:
    bool fail(size_t at, const char* why)
    {
        m_error = "malformed image at offset " + std::to_string(at) + ": " + why;
        return false;
    }

    bool u8(size_t& pos, size_t end, uint8_t& value)
    {
        if (end - pos < 1)
            return fail(pos, "cut short");
        value = m_image[pos++];
        return true;
    }

    bool u16(size_t& pos, size_t end, uint16_t& value)
    {
        if (end - pos < 2)
            return fail(pos, "cut short");
        value = uint16_t(m_image[pos] | m_image[pos + 1] << 8);
        pos += 2;
        return true;
    }

    bool u32(size_t& pos, size_t end, uint32_t& value)
    {
        if (end - pos < 4)
            return fail(pos, "cut short");
        value = 0;
        for (int i = 0; i < 4; ++i)
            value |= uint32_t(m_image[pos + i]) << (8 * i);
        pos += 4;
        return true;
    }

    bool string(size_t& pos, size_t end, std::string& value)
    {
        uint16_t index = 0;
        if (!u16(pos, end, index))
            return false;
        if (index >= m_strings.size())
            return fail(pos - 2, "string index out of range");
        value = m_strings[index];
        return true;
    }

    std::string indent(int depth) const { return std::string(2 * size_t(depth), ' '); }

    std::string opening(const std::string& tag, const std::string& name) const
    {
        std::string text = "<" + tag;
        if (!name.empty())
            text += " name=\"" + escaped(name) + "\"";
        return text;
    }

    bool record(size_t& pos, size_t end, int depth)
    {
        if (depth > kMaxDepth)
            return fail(pos, "nested too deep");
        std::string tag, name;
        uint8_t kind = 0;
        if (!string(pos, end, tag) || !string(pos, end, name) || !u8(pos, end, kind))
            return false;
        if (kind == 0)
            return node(pos, end, depth, tag, name);
        if (kind != 1)
            return fail(pos - 1, "unknown node kind");

        std::string classTag;
        uint32_t length = 0;
        if (!string(pos, end, classTag) || !u32(pos, end, length))
            return false;
        if (end - pos < length)
            return fail(pos - 4, "template body runs past its parent");
        const size_t bodyEnd = pos + length;
        m_text += indent(depth) + opening(tag, name) + "> <!-- deferred " + escaped(classTag) + ", body of " +
                  std::to_string(length) + " bytes -->\n";
        const size_t bodyAt = pos;
        std::string bodyTag, bodyName;
        if (!string(pos, bodyEnd, bodyTag) || !string(pos, bodyEnd, bodyName) || !u8(pos, bodyEnd, kind))
            return false;
        if (bodyTag != classTag || !bodyName.empty())
            return fail(bodyAt, "template body's pair is not (class tag, 0)");
        if (kind != 0)
            return fail(pos - 1, "template body is not an ordinary node");
        if (!node(pos, bodyEnd, depth + 1, bodyTag, bodyName))
            return false;
        if (pos != bodyEnd)
            return fail(pos, "template body shorter than its length");
        m_text += indent(depth) + "</" + tag + ">\n";
        return true;
    }

    // The part of a kind-0 node after its kind byte.
    bool node(size_t& pos, size_t end, int depth, const std::string& tag, const std::string& name)
    {
        std::string line = indent(depth) + opening(tag, name);
        uint16_t attributes = 0, children = 0;
        if (!u16(pos, end, attributes))
            return false;
        for (uint16_t i = 0; i < attributes; ++i) {
            std::string key, value;
            if (!string(pos, end, key) || !string(pos, end, value))
                return false;
            line += " " + key + "=\"" + escaped(value) + "\"";
        }
        if (!u16(pos, end, children))
            return false;
        m_text += line + (children ? ">\n" : "/>\n");
        for (uint16_t i = 0; i < children; ++i) {
            if (!record(pos, end, depth + 1))
                return false;
        }
        if (children)
            m_text += indent(depth) + "</" + tag + ">\n";
        return true;
    }

    const std::vector<uint8_t>& m_image;
    std::string& m_text;
    std::string& m_error;
    std::vector<std::string> m_strings;
};

} // namespace

bool dumpDefinitionImage(const std::vector<uint8_t>& image, std::string& text, std::string& error)
{
    return ImageDumper(image, text, error).run();
}

} // namespace qel
