#include "Core/CCoreCreators.h"

#include "Core/CAttrDoubler.h"
#include "Core/CObject.h"
#include "Core/CStdEventBridge.h"

namespace qel {

const CCreatorRow kCoreCreatorRows[] = {
    creatorRow<CObject>("core:object"),
    creatorRow<CAttrDoubler>("core:attr-doubler"),
    creatorRow<CStdEventBridge>("ui:ui-event-bridge"),
    {nullptr, nullptr, nullptr},
};

} // namespace qel
