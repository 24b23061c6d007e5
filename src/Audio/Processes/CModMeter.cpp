#include "Audio/Processes/CModMeter.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioVizReceiver.h"
#include "Audio/Processes/CModMeterDef.h"

#include <mutex>
#include <new>

namespace qel {

// The settings come first: the base makes the prepared modules, and each reads them.
CErrorPtr CModMeter::init()
{
    m_settings = CModStatsModule::CSettings();
    if (const auto* def = dynamic_cast<const CModMeterDef*>(m_def)) {
        m_settings.isFpsFixed = def->hasFixedFps();
        m_settings.fps = def->fps();
        m_settings.isDiff = def->isDiff();
        m_settings.isCompression = def->isCompression();
        m_settings.isInverted = def->isInverted();
    }
    if (m_env) {
        if (!m_settings.isFpsFixed) {
            std::lock_guard<std::mutex> guard(m_env->queueLock());
            m_settings.fps = m_env->updateRate();
        }
        m_settings.receiver = m_env->vizReceiver();
        if (m_settings.receiver)
            m_settings.source = m_settings.receiver->getSource(m_fullName);
    }
    return CAudioProcessTerminalBase::init();
}

CAudioModule* CModMeter::createModule() { return new (std::nothrow) CModMeterModule(m_settings); }

} // namespace qel
