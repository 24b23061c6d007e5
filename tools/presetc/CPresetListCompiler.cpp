#include "CPresetListCompiler.h"

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamData.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamStorage.h"
#include "Core/CObject.h"
#include "Core/CPtrArray.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace qel {
namespace {

// An entry as the source gives it, before it becomes a blob.
struct CEntrySource
{
    CString key;
    bool isText = false;
    std::vector<CString> elements;
    int line = 0;
};

int lineOf(const char* text, size_t size, ptrdiff_t offset)
{
    int line = 1;
    for (ptrdiff_t i = 0; i < offset && size_t(i) < size; ++i)
        line += text[i] == '\n';
    return line;
}

CString located(int line, const CString& what)
{
    return CString("line ").append(CString::number(line)).append(": ").append(what);
}

bool readNumber(const CString& token, double& out) { return !token.isEmpty() && token.toReal(out); }

CString realText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return CString(text);
}

class CCompiler
{
public:
    CCompiler(const char* text, size_t size, const CObject* definitionRoot)
        : m_text(text), m_size(size), m_definitionRoot(definitionRoot)
    {
    }

    CErrorPtr run(CCompiledPresets& out)
    {
        pugi::xml_document document;
        const pugi::xml_parse_result parsed = document.load_buffer(m_text, m_size, pugi::parse_default, pugi::encoding_utf8);
        if (!parsed)
            return QEL_ERROR(located(lineOf(m_text, m_size, parsed.offset), CString::fromUtf8(parsed.description())),
                             "@qelstr_CPresetListCompiler_run_NotXML The source is not well-formed XML.");
        const pugi::xml_node root = document.document_element();
        const std::string rootName = root.name();
        const bool isBank = rootName == "preset-bank";
        if (!isBank && rootName != "preset-list")
            return error(root, "@qelstr_CPresetListCompiler_run_NoList The source's root is not <preset-list> or <preset-bank>.");
        if (isBank)
            QEL_RETURN_IF_ERROR(checkAttributes(root, {"name", "family", "definitions"}), CString());
        else
            QEL_RETURN_IF_ERROR(checkAttributes(root, {"family", "definitions"}), CString());
        m_family = CString::fromUtf8(root.attribute("family").value());
        m_definitions = CString::fromUtf8(root.attribute("definitions").value());
        if (m_family.length() != 4 || m_family.find(':') >= 0)
            return error(root, "@qelstr_CPresetListCompiler_run_InvalidFamily Invalid preset family '%1': four letters expected.",
                         m_family);
        if (m_definitions.isEmpty())
            return error(root, "@qelstr_CPresetListCompiler_run_NoDefinitions No 'definitions' attribute given.");
        if (m_definitionRoot && !m_definitionRoot->findObject(m_definitions))
            return error(root, "@qelstr_CPresetListCompiler_run_DefinitionsMissing The definition holds no object '%1'.",
                         m_definitions);

        std::vector<CEntrySource> common;
        bool hasCommon = false;
        CAudioPresetBank bank(isBank ? CString::fromUtf8(root.attribute("name").value()) : CString());
        for (const pugi::xml_node node : root.children()) {
            if (node.type() != pugi::node_element)
                continue;
            const std::string name = node.name();
            if (name == "common" && !hasCommon && bank.presetCount() == 0) {
                hasCommon = true;
                QEL_RETURN_IF_ERROR(checkAttributes(node, {}), CString());
                QEL_RETURN_IF_ERROR(readEntries(node, common), CString());
            } else if (name == "preset") {
                CAudioPreset preset;
                QEL_RETURN_IF_ERROR(readPreset(node, common, preset), CString());
                bank.addPreset(preset);
            } else {
                return error(node, "@qelstr_CPresetListCompiler_run_UnexpectedElement Unexpected element <%1>; a <common> "
                                   "block before the presets, then <preset> elements, are expected.",
                             CString::fromUtf8(name.c_str()));
            }
        }
        if (bank.presetCount() == 0)
            return error(root, "@qelstr_CPresetListCompiler_run_NoPresets The list holds no preset.");
        out.isBank = isBank;
        out.bank = std::move(bank);
        return nullptr;
    }

private:
    template <class... Args>
    CErrorPtr error(const pugi::xml_node& node, const char* message, const Args&... args) const
    {
        return QEL_ERROR(located(lineOf(m_text, m_size, node.offset_debug()), CString()), message, args...);
    }

    CErrorPtr checkAttributes(const pugi::xml_node& node, std::initializer_list<const char*> allowed) const
    {
        for (const pugi::xml_attribute attribute : node.attributes()) {
            bool isKnown = false;
            for (const char* name : allowed)
                isKnown = isKnown || std::string(attribute.name()) == name;
            if (!isKnown)
                return error(node, "@qelstr_CPresetListCompiler_checkAttributes_Unknown Unknown attribute '%1' of <%2>.",
                             CString::fromUtf8(attribute.name()), CString::fromUtf8(node.name()));
        }
        for (const char* name : allowed)
            if (!node.attribute(name))
                return error(node, "@qelstr_CPresetListCompiler_checkAttributes_Missing Attribute '%1' of <%2> missing.",
                             CString::fromUtf8(name), CString::fromUtf8(node.name()));
        return nullptr;
    }

    CErrorPtr readEntries(const pugi::xml_node& parent, std::vector<CEntrySource>& entries) const
    {
        for (const pugi::xml_node node : parent.children()) {
            if (node.type() != pugi::node_element)
                continue;
            const std::string name = node.name();
            if (name != "value" && name != "text")
                return error(node, "@qelstr_CPresetListCompiler_readEntries_UnexpectedElement Unexpected element <%1>; "
                                   "<value> or <text> expected.",
                             CString::fromUtf8(name.c_str()));
            QEL_RETURN_IF_ERROR(checkAttributes(node, {"key", "v"}), CString());
            CEntrySource entry;
            entry.key = CString::fromUtf8(node.attribute("key").value());
            entry.isText = name == "text";
            entry.line = lineOf(m_text, m_size, node.offset_debug());
            if (entry.key.isEmpty())
                return error(node, "@qelstr_CPresetListCompiler_readEntries_NoKey An entry without a key.");
            for (const CEntrySource& other : entries)
                if (other.key == entry.key)
                    return error(node, "@qelstr_CPresetListCompiler_readEntries_DupeKey Key '%1' given twice.", entry.key);
            const CString text = CString::fromUtf8(node.attribute("v").value());
            if (text.isEmpty() && !entry.isText)
                return error(node, "@qelstr_CPresetListCompiler_readEntries_NoValues No value given for '%1'.", entry.key);
            CPtrArray<CString, true> tokens;
            text.split(',', tokens, false, true);
            for (const CString* token : tokens) {
                if (!entry.isText) {
                    double value = 0.0;
                    if (!readNumber(*token, value))
                        return error(node, "@qelstr_CPresetListCompiler_readEntries_NotANumber Value '%1' of '%2' is not a number.",
                                     *token, entry.key);
                }
                entry.elements.push_back(*token);
            }
            // An empty text is one empty element.
            if (entry.elements.empty())
                entry.elements.push_back(CString());
            entries.push_back(std::move(entry));
        }
        return nullptr;
    }

    CErrorPtr readPreset(const pugi::xml_node& node, const std::vector<CEntrySource>& common, CAudioPreset& preset) const
    {
        QEL_RETURN_IF_ERROR(checkAttributes(node, {"name"}), CString());
        const CString name = CString::fromUtf8(node.attribute("name").value());
        if (name.isEmpty())
            return error(node, "@qelstr_CPresetListCompiler_readPreset_NoName A preset without a name.");
        std::vector<CEntrySource> entries;
        QEL_RETURN_IF_ERROR(readEntries(node, entries), CString());
        for (const CEntrySource& shared : common) {
            bool isOwn = false;
            for (const CEntrySource& own : entries)
                isOwn = isOwn || own.key == shared.key;
            if (!isOwn)
                entries.push_back(shared);
        }
        preset.setName(CString(m_family).append(":").append(name));
        for (const CEntrySource& entry : entries)
            QEL_RETURN_IF_ERROR(storeEntry(entry, preset.entry(entry.key)), located(entry.line, entry.key));
        return nullptr;
    }

    // The definition an entry names, checked against what the source gives; null without
    // a definition to check against.
    CErrorPtr findDefinition(const CEntrySource& source, const CAudioParamInfo*& out) const
    {
        out = nullptr;
        if (!m_definitionRoot)
            return nullptr;
        const CString path = CString(m_definitions).append(".").append(source.key);
        const auto* def = dynamic_cast<const CAudioParamDef*>(m_definitionRoot->findObject(path));
        if (!def)
            return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_checkEntry_UnknownKey Key '%1' names no parameter "
                                        "definition ('%2').",
                             source.key, path);
        const CAudioParamInfo& info = def->info();
        const bool holdsStrings = info.dataType == CAudioParamStorage::String;
        if (info.dataType == CAudioParamStorage::Raw || holdsStrings != source.isText)
            return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_checkEntry_WrongType The parameter of key '%1' holds "
                                        "%2; a <%3> entry can't give them.",
                             source.key, CString(info.dataType == CAudioParamStorage::Raw ? "raw data"
                                                 : holdsStrings                           ? "strings"
                                                                                          : "numbers"),
                             CString(source.isText ? "text" : "value"));
        if (info.elementSize != 1)
            return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_checkEntry_ElementSize The parameter of key '%1' has "
                                        "%2 values per element; only one is supported.",
                             source.key, CString::number(info.elementSize));
        if (info.isSingleElement && source.elements.size() > 1)
            return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_checkEntry_SingleElement The parameter of key '%1' "
                                        "takes one element; %2 given.",
                             source.key, CString::number(int64_t(source.elements.size())));
        if (!holdsStrings) {
            if (info.minValues.empty() || info.maxValues.empty())
                return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_checkEntry_NoRange The parameter of key '%1' "
                                            "has no range.",
                                 source.key);
            const double lo = std::min(info.minValues[0], info.maxValues[0]);
            const double hi = std::max(info.minValues[0], info.maxValues[0]);
            for (const CString& element : source.elements) {
                double value = 0.0;
                readNumber(element, value);
                if (!(value >= lo && value <= hi))
                    return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_checkEntry_OutOfRange Value '%1' of '%2' "
                                                "lies outside its range %3 to %4.",
                                     element, source.key, realText(lo), realText(hi));
            }
        }
        out = &info;
        return nullptr;
    }

    CErrorPtr storeEntry(const CEntrySource& source, CPresetEntry& out) const
    {
        const CAudioParamInfo* info = nullptr;
        QEL_RETURN_IF_ERROR(findDefinition(source, info), CString());
        const uint32_t type = source.isText ? CAudioParamStorage::String : CAudioParamStorage::Float;
        CAudioParamData items;
        std::vector<double> values;
        for (const CString& element : source.elements) {
            double value = 0.0;
            if (source.isText)
                value = double(items.addString(element));
            else
                readNumber(element, value);
            values.push_back(value);
        }
        CAudioParamStorage storage;
        if (info)
            storage.setFormat(*info);
        else
            storage.setFormat(1, type, false, false);
        CAudioParamChange change;
        change.group = 0;
        change.firstElement = 0;
        change.elementCount = int32_t(values.size());
        change.isListEnd = true;
        change.elementSize = 1;
        change.dataType = type;
        change.isSingleGroup = storage.isSingleGroup();
        change.isSingleElement = storage.isSingleElement();
        change.values = values.data();
        change.data = &items;
        storage.applyChange(change);
        const CString definitionName = info ? info->fullName : CString(m_definitions).append(".").append(source.key);
        return out.store(definitionName, storage, 0);
    }

    const char* m_text;
    size_t m_size;
    const CObject* m_definitionRoot;
    CString m_family;
    CString m_definitions;
};

} // namespace

CErrorPtr compilePresets(const char* text, size_t size, CCompiledPresets& out, const CObject* definitionRoot)
{
    CCompiledPresets compiled;
    CCompiler compiler(text, size, definitionRoot);
    QEL_RETURN_IF_ERROR(compiler.run(compiled), CString());
    out = std::move(compiled);
    return nullptr;
}

CErrorPtr compilePresetList(const char* text, size_t size, CAudioPresetList& out, const CObject* definitionRoot)
{
    CCompiledPresets compiled;
    QEL_RETURN_IF_ERROR(compilePresets(text, size, compiled, definitionRoot), CString());
    if (compiled.isBank)
        return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_compilePresetList_NotAList The source is a bank, not a "
                                    "preset list.");
    out.setBank(compiled.bank);
    return nullptr;
}

CErrorPtr compilePresetBank(const char* text, size_t size, CAudioPresetBank& out, const CObject* definitionRoot)
{
    CCompiledPresets compiled;
    QEL_RETURN_IF_ERROR(compilePresets(text, size, compiled, definitionRoot), CString());
    if (!compiled.isBank)
        return QEL_ERROR(CString(), "@qelstr_CPresetListCompiler_compilePresetBank_NotABank The source is a preset list, "
                                    "not a bank.");
    out = std::move(compiled.bank);
    return nullptr;
}

} // namespace qel
