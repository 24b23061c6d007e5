#pragma once

#include "Audio/CAudioPresetList.h"
#include "Core/CError.h"

#include <cstddef>

namespace qel {

// Turns a preset-list source into the list it describes, as the application data stores
// keep mode banks and routing presets. The source is XML:
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
// Anything else (another element or attribute, a number that doesn't read whole, a key
// twice in one preset, no preset at all) is refused with the line it was found on.
CErrorPtr compilePresetList(const char* text, size_t size, CAudioPresetList& out);

} // namespace qel
