#include "CDefinitionCompiler.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

namespace qel {

namespace {

namespace fs = std::filesystem;

using Attributes = std::vector<std::pair<std::string, std::string>>;

// XML names cannot hold "$(", yet fragments may put parameters into attribute names. Before
// parsing, the '$', '(' and ')' of each reference in an attribute-name position are swapped
// for bytes that never occur in UTF-8 and that the parser takes as name characters; offsets
// do not move, so line numbers stay true. decodeName() swaps them back.
constexpr char kNameDollar = '\xF8';
constexpr char kNameOpen = '\xF9';
constexpr char kNameClose = '\xFA';

void put16(std::vector<uint8_t>& out, uint16_t value)
{
    out.insert(out.end(), {uint8_t(value), uint8_t(value >> 8)});
}

void put32(std::vector<uint8_t>& out, uint32_t value)
{
    out.insert(out.end(), {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)});
}

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

size_t skipPast(const std::string& text, size_t from, const char* end)
{
    const size_t at = text.find(end, from);
    return at == std::string::npos ? text.size() : at + std::strlen(end);
}

void hideNameReferences(std::string& text)
{
    const size_t n = text.size();
    size_t i = 0;
    while (i < n) {
        if (text[i] != '<') {
            ++i;
        } else if (text.compare(i, 4, "<!--") == 0) {
            i = skipPast(text, i + 4, "-->");
        } else if (text.compare(i, 9, "<![CDATA[") == 0) {
            i = skipPast(text, i + 9, "]]>");
        } else if (i + 1 < n && (text[i + 1] == '?' || text[i + 1] == '!' || text[i + 1] == '/')) {
            i = skipPast(text, i + 1, ">");
        } else {
            // A start tag: past its name, everything outside quoted values is attribute names.
            ++i;
            while (i < n && !isSpace(text[i]) && text[i] != '>' && text[i] != '/')
                ++i;
            char quote = 0;
            for (; i < n; ++i) {
                const char c = text[i];
                if (quote) {
                    if (c == quote)
                        quote = 0;
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '>') {
                    break;
                } else if (c == '$' && i + 1 < n && text[i + 1] == '(') {
                    size_t close = i + 2;
                    while (close < n && !isSpace(text[close]) && !std::strchr("\"'<>=/()$", text[close]))
                        ++close;
                    if (close < n && text[close] == ')') {
                        text[i] = kNameDollar;
                        text[i + 1] = kNameOpen;
                        text[close] = kNameClose;
                        i = close;
                    }
                }
            }
        }
    }
}

std::string decodeName(const char* name)
{
    std::string text = name;
    for (char& c : text) {
        if (c == kNameDollar)
            c = '$';
        else if (c == kNameOpen)
            c = '(';
        else if (c == kNameClose)
            c = ')';
    }
    return text;
}

std::string trimmed(const std::string& text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && isSpace(text[begin]))
        ++begin;
    while (end > begin && isSpace(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

bool hasContent(pugi::xml_node node)
{
    for (pugi::xml_node child : node.children()) {
        if (child.type() == pugi::node_element || child.type() == pugi::node_cdata)
            return true;
        if (child.type() == pugi::node_pcdata && !trimmed(child.value()).empty())
            return true;
    }
    return false;
}

// One file read for the compile, kept for the whole of it: fragments and nodes point into
// its document.
struct Source
{
    std::string path; // as the user or the including file named it, for messages
    std::string key;  // the canonical path, which tells the same file reached twice
    std::string text; // what the parser saw
    std::vector<size_t> lineStarts;
    pugi::xml_document document;
    pugi::xml_node root;

    int lineOf(pugi::xml_node node) const
    {
        const ptrdiff_t offset = node.offset_debug();
        if (offset < 0)
            return 0;
        return int(std::upper_bound(lineStarts.begin(), lineStarts.end(), size_t(offset)) - lineStarts.begin());
    }
    std::string at(pugi::xml_node node) const { return path + ":" + std::to_string(lineOf(node)); }
};

struct Fragment
{
    const Source* source;
    pugi::xml_node element;
};

// The parameters in force inside a fragment's body: the use's arguments, then the
// fragment's defaults, then whatever the enclosing use provides.
struct Scope
{
    const Scope* outer;
    std::string fragment;
    const Source* useSource;
    pugi::xml_node use;
    Attributes values;

    const std::string* find(const std::string& parameter) const
    {
        for (const Scope* scope = this; scope; scope = scope->outer) {
            for (const auto& [name, value] : scope->values) {
                if (name == parameter)
                    return &value;
            }
        }
        return nullptr;
    }
};

// An expanded element, ready to be written. A deferred node's attributes and children are
// those of its body.
struct Node
{
    std::string tag;
    std::string name;
    Attributes attributes;
    std::vector<Node> children;
    bool deferred = false;
    std::string classTag;
    std::string where; // "path:line" of the element it came from
};

class Compilation
{
public:
    explicit Compilation(std::vector<std::string>& sources) : m_sources(sources) {}

    bool run(const std::string& path, std::vector<uint8_t>& image);
    const std::string& error() const { return m_error; }

private:
    bool fail(const std::string& where, const std::string& message)
    {
        m_error = where + ": " + message;
        return false;
    }

    // Reading and checking the files, gathering fragments and following includes.
    bool load(const std::string& path, const Source* includer, pugi::xml_node include, const Source*& loaded);
    bool scan(const Source& source, pugi::xml_node element);

    // Expansion into nodes.
    bool expandChildren(const Source& source, pugi::xml_node parent, const Scope* scope, std::vector<Node>& out);
    bool expandElement(const Source& source, pugi::xml_node element, const Scope* scope, std::vector<Node>& out);
    bool expandUse(const Source& source, pugi::xml_node use, const Scope* scope, std::vector<Node>& out);
    bool substitute(const char* text, const Source& source, pugi::xml_node at, const Scope* scope, std::string& out);
    bool attributesOf(const Source& source, pugi::xml_node element, const Scope* scope, Attributes& out);

    // Writing the image.
    bool indexOf(const std::string& text, const Node& at, uint16_t& index);
    bool writeRecord(const Node& node);
    bool writeBody(const Node& node);
    bool finish(std::vector<uint8_t>& image);

    std::vector<std::string>& m_sources;
    std::string m_error;
    std::map<std::string, std::unique_ptr<Source>> m_files; // by canonical path
    std::vector<const Source*> m_loading;                   // being read, includer first
    std::map<std::string, Fragment> m_fragments;
    std::map<const void*, const Source*> m_includes; // include element -> the file it names

    std::vector<std::string> m_strings; // by index
    std::unordered_map<std::string, uint16_t> m_indices;
    std::vector<uint8_t> m_nodes;
};

bool Compilation::run(const std::string& path, std::vector<uint8_t>& image)
{
    const Source* input = nullptr;
    if (!load(path, nullptr, pugi::xml_node(), input))
        return false;

    // The root keeps every attribute, its name too: its own pair is always empty.
    Node root;
    root.where = input->at(input->root);
    for (pugi::xml_attribute attribute : input->root.attributes())
        root.attributes.emplace_back(decodeName(attribute.name()), attribute.value());
    if (!expandChildren(*input, input->root, nullptr, root.children))
        return false;

    m_strings.emplace_back();
    m_indices.emplace(std::string(), 0);
    put16(m_nodes, 0);
    put16(m_nodes, 0);
    return writeBody(root) && finish(image);
}

bool Compilation::load(const std::string& path, const Source* includer, pugi::xml_node include, const Source*& loaded)
{
    const std::string where = includer ? includer->at(include) : path;
    std::error_code failed;
    const fs::path canonical = fs::weakly_canonical(path, failed);
    const std::string key = failed ? path : canonical.string();

    for (size_t i = 0; i < m_loading.size(); ++i) {
        if (m_loading[i]->key != key)
            continue;
        std::string cycle;
        for (size_t j = i; j < m_loading.size(); ++j)
            cycle += m_loading[j]->path + " -> ";
        return fail(where, "include cycle: " + cycle + path);
    }
    if (const auto known = m_files.find(key); known != m_files.end()) {
        loaded = known->second.get();
        return true;
    }

    auto source = std::make_unique<Source>();
    source->path = path;
    source->key = key;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return fail(where, includer ? "cannot read included file '" + path + "'" : std::string("cannot read the file"));
    char buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        source->text.append(buffer, got);
    const bool readFailed = std::ferror(file);
    std::fclose(file);
    if (readFailed)
        return fail(where, "cannot read '" + path + "'");

    source->lineStarts.push_back(0);
    for (size_t i = 0; i < source->text.size(); ++i) {
        if (source->text[i] == '\n')
            source->lineStarts.push_back(i + 1);
    }
    hideNameReferences(source->text);
    const pugi::xml_parse_result parsed = source->document.load_buffer(source->text.data(), source->text.size(),
                                                                        pugi::parse_default, pugi::encoding_utf8);
    if (!parsed) {
        const auto line = std::upper_bound(source->lineStarts.begin(), source->lineStarts.end(), size_t(parsed.offset));
        return fail(path + ":" + std::to_string(line - source->lineStarts.begin()), parsed.description());
    }
    source->root = source->document.document_element();
    if (!source->root || std::strcmp(source->root.name(), "definition") != 0)
        return fail(source->root ? source->at(source->root) : path, "the root element must be <definition>");

    Source* read = source.get();
    m_files.emplace(key, std::move(source));
    m_sources.push_back(path);
    m_loading.push_back(read);
    if (!scan(*read, read->root))
        return false;
    m_loading.pop_back();
    loaded = read;
    return true;
}

// Gathers the fragments and reads the included files before anything expands, so a use
// may come before the fragment it names, in the same file or in one included later.
bool Compilation::scan(const Source& source, pugi::xml_node element)
{
    for (pugi::xml_node child : element.children()) {
        if (child.type() != pugi::node_element)
            continue;
        if (std::strcmp(child.name(), "fragment") == 0) {
            if (element != source.root)
                return fail(source.at(child), "a fragment must be a child of <definition>");
            const std::string name = child.attribute("name").value();
            if (name.empty())
                return fail(source.at(child), "fragment without a name");
            const auto [known, added] = m_fragments.try_emplace(name, Fragment{&source, child});
            if (!added)
                return fail(source.at(child), "fragment '" + name + "' is already defined at " +
                                                  known->second.source->at(known->second.element));
        } else if (std::strcmp(child.name(), "include") == 0) {
            const char* file = child.attribute("file").value();
            if (!*file)
                return fail(source.at(child), "include without a file");
            if (hasContent(child))
                return fail(source.at(child), "an include has no content");
            const std::string path = (fs::path(source.path).parent_path() / file).lexically_normal().string();
            const Source* included = nullptr;
            if (!load(path, &source, child, included))
                return false;
            m_includes[child.internal_object()] = included;
            continue;
        }
        if (!scan(source, child))
            return false;
    }
    return true;
}

bool Compilation::expandChildren(const Source& source, pugi::xml_node parent, const Scope* scope,
                                 std::vector<Node>& out)
{
    for (pugi::xml_node child : parent.children()) {
        if (child.type() == pugi::node_element) {
            if (!expandElement(source, child, scope, out))
                return false;
        } else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            std::string text;
            if (!substitute(child.value(), source, child, scope, text))
                return false;
            text = trimmed(text);
            if (text.empty())
                continue;
            Node content;
            content.tag = content.name = "content";
            content.attributes.emplace_back("value", std::move(text));
            content.where = source.at(child);
            out.push_back(std::move(content));
        }
    }
    return true;
}

bool Compilation::expandElement(const Source& source, pugi::xml_node element, const Scope* scope,
                                std::vector<Node>& out)
{
    const std::string tag = element.name();
    if (tag == "fragment")
        return true; // gathered by scan(), which also made sure it sits at the top
    if (tag == "use")
        return expandUse(source, element, scope, out);
    if (tag == "include") {
        const Source* included = m_includes[element.internal_object()];
        return expandChildren(*included, included->root, nullptr, out);
    }

    Attributes attributes;
    if (!attributesOf(source, element, scope, attributes))
        return false;
    Node node;
    node.tag = tag;
    node.where = source.at(element);
    const bool deferred = tag == "template";
    if (deferred) {
        node.deferred = true;
        node.classTag = "core:object";
    }
    bool named = false;
    for (auto& [name, value] : attributes) {
        if (name == "name") {
            node.name = std::move(value);
            named = true;
        } else if (deferred && name == "tag") {
            node.classTag = std::move(value);
        } else {
            node.attributes.emplace_back(std::move(name), std::move(value));
        }
    }
    if (deferred && (!named || node.name.empty()))
        return fail(node.where, "template without a name");
    if (!expandChildren(source, element, scope, node.children))
        return false;
    out.push_back(std::move(node));
    return true;
}

bool Compilation::expandUse(const Source& source, pugi::xml_node use, const Scope* scope, std::vector<Node>& out)
{
    const std::string where = source.at(use);
    if (hasContent(use))
        return fail(where, "a use has no content: its parameters are attributes");
    Attributes arguments;
    if (!attributesOf(source, use, scope, arguments))
        return false;
    Scope inner{scope, std::string(), &source, use, Attributes()};
    bool named = false;
    for (auto& argument : arguments) {
        if (argument.first == "fragment") {
            inner.fragment = std::move(argument.second);
            named = true;
        } else {
            inner.values.push_back(std::move(argument));
        }
    }
    if (!named)
        return fail(where, "use without a fragment");
    const auto found = m_fragments.find(inner.fragment);
    if (found == m_fragments.end())
        return fail(where, "unknown fragment '" + inner.fragment + "'");

    std::vector<std::string> chain;
    for (const Scope* outer = scope; outer; outer = outer->outer) {
        chain.push_back(outer->fragment);
        if (outer->fragment != inner.fragment)
            continue;
        std::string text;
        for (auto name = chain.rbegin(); name != chain.rend(); ++name)
            text += *name + " -> ";
        return fail(where, "fragment '" + inner.fragment + "' uses itself: " + text + inner.fragment);
    }

    const Fragment& fragment = found->second;
    for (pugi::xml_attribute fallback : fragment.element.attributes()) {
        if (std::strcmp(fallback.name(), "name") != 0)
            inner.values.emplace_back(decodeName(fallback.name()), fallback.value());
    }
    return expandChildren(*fragment.source, fragment.element, &inner, out);
}

// Only a fragment's body has parameters. There "$(p)" takes p's value as it stands (a value
// is not searched again) and "$$" is a lone '$'; elsewhere text is kept as written.
bool Compilation::substitute(const char* text, const Source& source, pugi::xml_node at, const Scope* scope,
                             std::string& out)
{
    out.clear();
    if (!scope) {
        out = text;
        return true;
    }
    for (const char* p = text; *p;) {
        if (p[0] != '$' || (p[1] != '$' && p[1] != '(')) {
            out += *p++;
        } else if (p[1] == '$') {
            out += '$';
            p += 2;
        } else {
            const char* close = std::strchr(p + 2, ')');
            if (!close)
                return fail(source.at(at), "'$(' without ')' in \"" + std::string(text) + "\"");
            const std::string parameter(p + 2, close);
            const std::string* value = scope->find(parameter);
            if (!value)
                return fail(scope->useSource->at(scope->use), "no value for $(" + parameter + ") in fragment '" +
                                                                  scope->fragment + "' (" + source.at(at) + ")");
            out += *value;
            p = close + 1;
        }
    }
    return true;
}

bool Compilation::attributesOf(const Source& source, pugi::xml_node element, const Scope* scope, Attributes& out)
{
    for (pugi::xml_attribute attribute : element.attributes()) {
        std::string name, value;
        if (!substitute(decodeName(attribute.name()).c_str(), source, element, scope, name) ||
            !substitute(attribute.value(), source, element, scope, value))
            return false;
        for (const auto& earlier : out) {
            if (earlier.first == name)
                return fail(source.at(element), "attribute '" + name + "' given twice");
        }
        out.emplace_back(std::move(name), std::move(value));
    }
    return true;
}

bool Compilation::indexOf(const std::string& text, const Node& at, uint16_t& index)
{
    if (const auto known = m_indices.find(text); known != m_indices.end()) {
        index = known->second;
        return true;
    }
    if (m_strings.size() >= CDefinitionCompiler::kMaxStrings)
        return fail(at.where, "more than " + std::to_string(CDefinitionCompiler::kMaxStrings) + " distinct strings");
    index = uint16_t(m_strings.size());
    m_strings.push_back(text);
    m_indices.emplace(text, index);
    return true;
}

// Strings get their indices in the order the loader meets them, so writing and indexing
// go together.
bool Compilation::writeRecord(const Node& node)
{
    uint16_t tag, name;
    if (!indexOf(node.tag, node, tag) || !indexOf(node.name, node, name))
        return false;
    put16(m_nodes, tag);
    put16(m_nodes, name);
    if (!node.deferred)
        return writeBody(node);

    uint16_t classTag;
    if (!indexOf(node.classTag, node, classTag))
        return false;
    m_nodes.push_back(1);
    put16(m_nodes, classTag);
    const size_t lengthAt = m_nodes.size();
    put32(m_nodes, 0);
    put16(m_nodes, classTag);
    put16(m_nodes, 0);
    if (!writeBody(node))
        return false;
    const size_t length = m_nodes.size() - lengthAt - 4;
    if (length > UINT32_MAX)
        return fail(node.where, "template body larger than 4 GiB");
    for (int i = 0; i < 4; ++i)
        m_nodes[lengthAt + i] = uint8_t(length >> (8 * i));
    return true;
}

bool Compilation::writeBody(const Node& node)
{
    if (node.attributes.size() > UINT16_MAX)
        return fail(node.where, "more than 65535 attributes");
    if (node.children.size() > UINT16_MAX)
        return fail(node.where, "more than 65535 children");
    m_nodes.push_back(0);
    put16(m_nodes, uint16_t(node.attributes.size()));
    for (const auto& [name, value] : node.attributes) {
        uint16_t nameIndex, valueIndex;
        if (!indexOf(name, node, nameIndex) || !indexOf(value, node, valueIndex))
            return false;
        put16(m_nodes, nameIndex);
        put16(m_nodes, valueIndex);
    }
    put16(m_nodes, uint16_t(node.children.size()));
    for (const Node& child : node.children) {
        if (!writeRecord(child))
            return false;
    }
    return true;
}

// The pool holds the texts in byte order, which lets the loader search it; the offset table
// maps the first-use indices onto them.
bool Compilation::finish(std::vector<uint8_t>& image)
{
    const size_t count = m_strings.size();
    std::vector<uint16_t> sorted(count);
    for (size_t i = 0; i < count; ++i)
        sorted[i] = uint16_t(i);
    std::sort(sorted.begin(), sorted.end(), [this](uint16_t a, uint16_t b) { return m_strings[a] < m_strings[b]; });

    std::vector<uint32_t> offsets(count);
    std::string bytes;
    for (uint16_t index : sorted) {
        offsets[index] = uint32_t(4 * count + bytes.size());
        bytes.append(m_strings[index].c_str(), m_strings[index].size() + 1);
    }
    const size_t poolSize = 4 * count + bytes.size();
    if (poolSize > UINT32_MAX)
        return fail(m_sources.front(), "string pool larger than 4 GiB");

    image.clear();
    image.reserve(8 + poolSize + m_nodes.size());
    put32(image, uint32_t(count));
    put32(image, uint32_t(poolSize));
    for (uint32_t offset : offsets)
        put32(image, offset);
    image.insert(image.end(), bytes.begin(), bytes.end());
    image.insert(image.end(), m_nodes.begin(), m_nodes.end());
    return true;
}

std::string forMake(const std::string& path)
{
    std::string text;
    for (char c : path) {
        if (c == ' ' || c == '#')
            text += '\\';
        else if (c == '$')
            text += '$';
        text += c;
    }
    return text;
}

} // namespace

bool CDefinitionCompiler::compile(const std::string& path)
{
    m_image.clear();
    m_error.clear();
    m_sources.clear();
    Compilation compilation(m_sources);
    if (compilation.run(path, m_image))
        return true;
    m_image.clear();
    m_error = compilation.error();
    return false;
}

std::string CDefinitionCompiler::depfile(const std::string& target) const
{
    std::string text = forMake(target) + ":";
    for (const std::string& source : m_sources)
        text += " \\\n  " + forMake(source);
    return text + "\n";
}

} // namespace qel
