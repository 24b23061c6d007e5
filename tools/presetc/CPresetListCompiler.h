#pragma once

#include "Audio/CAudioPresetBank.h"
#include "Audio/CAudioPresetList.h"
#include "Core/CError.h"

#include <cstddef>

namespace qel {

class CObject;

// Turns a preset source into the list it describes, as the application data stores keep
// mode banks and routing presets, or into a bank. The source is XML:
//
//   <preset-list family="QMGC" definitions="audio.modMain.modDLC73.glowcore-params">
//     <common>                                   optional: entries of every preset
//       <value key="feed-freq-inv" v="0"/>
//     </common>
//     <preset name="Very Hard">
//       <text key="mode-name" v="Very Hard"/>
//       <value key="ratio-a" v="0.672568652"/>
//     </preset>
//   </preset-list>
//
// `family` is the four letters every preset name begins with ("QMGC:Very Hard").
// `definitions` is the full name of the definitions the keys are relative to: an entry's
// stored definition name is `definitions` "." key. A <value> holds float elements, a
// <text> string elements; `v` is their comma-separated list (an empty <text> is one empty
// element). Each entry stores its elements as group 0 of its parameter, one value per
// element, as a preset of one group does. A preset's own entry wins over a common one of
// the same key. Presets keep the order of the source; entries are in key order, as every
// preset keeps them.
//
// A bank (as a bank file or the module's built-in bank holds it) has the root
// <preset-bank name="Bank" family=".." definitions="..">, with the same content; its name
// is the bank's name.
//
// With `definitionRoot`, the root of a loaded compiled definition, every entry is checked
// against the parameter definition it names (`definitions` "." key): the definition must
// exist, hold strings for a <text> and numbers for a <value>, take one value per element,
// take no more than one element when it is single-element, and every number must lie
// within its range (min and max in internal units, either way round). The entry's stored
// definition name is then the definition's own full name, and its storage has the
// parameter's format.
//
// Anything else (another element or attribute, a number that doesn't read whole, a key
// twice in one preset, no preset at all) is refused with the line it was found on. On
// error `out` is left as it was.
CErrorPtr compilePresetList(const char* text, size_t size, CAudioPresetList& out,
                            const CObject* definitionRoot = nullptr);
CErrorPtr compilePresetBank(const char* text, size_t size, CAudioPresetBank& out,
                            const CObject* definitionRoot = nullptr);

// Either kind, as the source's root decides.
struct CCompiledPresets
{
    bool isBank = false;
    // For a list: its bank, nameless.
    CAudioPresetBank bank;
};
CErrorPtr compilePresets(const char* text, size_t size, CCompiledPresets& out, const CObject* definitionRoot = nullptr);

} // namespace qel
