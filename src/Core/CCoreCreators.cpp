#include "Core/CCoreCreators.h"

#include "Core/CAttrDoubler.h"
#include "Core/CObject.h"
#include "Core/CSharedAttribute.h"
#include "Core/CStdEventBridge.h"
#include "Core/CTimerQueued.h"

namespace qel {

const CCreatorRow kCoreCreatorRows[] = {
    creatorRow<CObject>("core:object"),
    creatorRow<CAttrDoubler>("core:attr-doubler"),
    creatorRow<CStdEventBridge>("ui:ui-event-bridge"),
    creatorRow<CSharedAttribute>("core:shared-attribute"),
    creatorRow<CTimerQueued>("core:timer"),
    {nullptr, nullptr, nullptr},
};

} // namespace qel
