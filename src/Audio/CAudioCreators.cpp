#include "Audio/CAudioCreators.h"

#include "Audio/CAudioCCTable.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioExtParam.h"
#include "Audio/CAudioInterfaceBase.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CAudioProcessBypassStateDef.h"
#include "Audio/CAudioProcessDef.h"
#include "Audio/CAudioProcessLinkDef.h"
#include "Audio/Converters/CAudioParamConverterBW.h"
#include "Audio/Converters/CAudioParamConverterEnum.h"
#include "Audio/Converters/CAudioParamConverterFreq.h"
#include "Audio/Converters/CAudioParamConverterGain.h"
#include "Audio/Converters/CAudioParamConverterPercent.h"
#include "Audio/Converters/CAudioParamConverterRatio.h"
#include "Audio/Converters/CAudioParamConverterReal.h"
#include "Audio/Converters/CAudioParamConverterText.h"
#include "Audio/Converters/CAudioParamConverterTime.h"
#include "Audio/Filters/CAudioFilterBypassGen.h"
#include "Audio/Filters/CAudioFilterFIRLPGen.h"
#include "Audio/Filters/CAudioFilterGenArray.h"
#include "Audio/Filters/CAudioFilterGenArrayItem.h"
#include "Audio/Filters/CAudioFilterHBFGen.h"
#include "Audio/Filters/CAudioFilterLPHP1Gen.h"
#include "Audio/Filters/CAudioFilterMagnusGen.h"
#include "Audio/Filters/CAudioFilterRBJGen.h"
#include "Audio/Filters/CAudioFilterSerialGen.h"
#include "Audio/Filters/CAudioFilterSerialGenItem.h"
#include "Audio/Processes/CModFilterFIRDef.h"
#include "Audio/Processes/CModFilterIIRDef.h"
#include "Audio/Processes/CModBypassDef.h"
#include "Audio/Processes/CModGainDef.h"
#include "Audio/Processes/CModGlowCoreDef.h"
#include "Audio/Processes/CModDecimatorDef.h"
#include "Audio/Processes/CModInterpolatorDef.h"
#include "Audio/Processes/CModLatencyUniformerDef.h"
#include "Audio/Processes/CModMeterDef.h"
#include "Audio/Processes/CModNodeDef.h"
#include "Audio/Processes/CModOutputDef.h"
#include "Audio/Processes/CModProcessSwitchDef.h"
#include "Audio/Processes/CModResamplerDef.h"
#include "Audio/Processes/CModSatEBDef.h"
#include "Audio/ParamFilters/CAudioParamFilterBypassGroupSoloDef.h"
#include "Audio/ParamFilters/CAudioParamFilterBypassOSDef.h"
#include "Audio/ParamFilters/CAudioParamFilterFixedAGDef.h"
#include "Audio/ParamFilters/CAudioParamRemapDef.h"
#include "Audio/ParamFilters/CAudioParamSharedStorage.h"

namespace qel {

const CCreatorRow kAudioCreatorRows[] = {
    creatorRow<CAudioParamConverterReal>("audio:cvt-real"),
    creatorRow<CAudioParamConverterPercent>("audio:cvt-percent"),
    creatorRow<CAudioParamConverterText>("audio:cvt-text"),
    creatorRow<CAudioParamConverterBW>("audio:cvt-bw"),
    creatorRow<CAudioParamConverterRatio>("audio:cvt-ratio"),
    creatorRow<CAudioParamConverterTime>("audio:cvt-time"),
    creatorRow<CAudioParamConverterEnum>("audio:cvt-enum"),
    creatorRow<CAudioParamConverterFreq>("audio:cvt-freq"),
    creatorRow<CAudioParamConverterGain>("audio:cvt-gain"),
    creatorRow<CAudioParamDef>("audio:param"),
    creatorRow<CAudioParamAllocDef>("audio:param-alloc"),
    creatorRow<CAudioParamCollector>("audio:param-collector"),
    creatorRow<CAudioParamRegistry>("audio:param-registry"),
    creatorRow<CAudioEnv>("audio:audio-env"),
    creatorRow<CAudioExtParam>("audio:ext-param"),
    creatorRow<CAudioExtParamList>("audio:ext-param-list"),
    creatorRow<CAudioCCTable>("audio:cctable"),
    creatorRow<CAudioProcessDef>("audio:process-def"),
    creatorRow<CAudioProcessLinkDef>("audio:process-link"),
    creatorRow<CAudioProcessBypassStateDef>("audio:process-bypass-state"),
    creatorRow<CModNodeDef>("audio:modNode"),
    creatorRow<CModOutputDef>("audio:modOutput"),
    creatorRow<CModGainDef>("audio:modGain"),
    creatorRow<CModBypassDef>("audio:modBypass"),
    creatorRow<CModProcessSwitchDef>("audio:modProcessSwitch"),
    creatorRow<CModSatEBDef>("audio:modSatEB"),
    creatorRow<CModGlowCoreDef>("audio:modGlowCore"),
    creatorRow<CAudioFilterBypassGen>("audio:fltgen-bypass"),
    creatorRow<CAudioFilterLPHP1Gen>("audio:fltgen-lphp1"),
    creatorRow<CAudioFilterRBJGen>("audio:fltgen-rbj"),
    creatorRow<CAudioFilterMagnusGen>("audio:fltgen-magnus"),
    creatorRow<CAudioFilterHBFGen>("audio:fltgen-hbf"),
    creatorRow<CAudioFilterFIRLPGen>("audio:fltgen-firlp"),
    creatorRow<CAudioFilterSerialGen>("audio:fltgen-serial"),
    creatorRow<CAudioFilterSerialGenItem>("audio:fltgen-serial-item"),
    creatorRow<CAudioFilterGenArray>("audio:fltgen-array"),
    creatorRow<CAudioFilterGenArrayItem>("audio:fltgen-array-item"),
    creatorRow<CModFilterIIRDef>("audio:modFilterIIR"),
    creatorRow<CModFilterFIRDef>("audio:modFilterFIR"),
    creatorRow<CModResamplerDef>("audio:modResampler"),
    creatorRow<CModInterpolatorDef>("audio:modInterpolator"),
    creatorRow<CModDecimatorDef>("audio:modDecimator"),
    creatorRow<CModLatencyUniformerDef>("audio:modLatencyUniformer"),
    creatorRow<CModMeterDef>("audio:modMeter"),
    creatorRow<CAudioParamRemapDef>("audio:param-remap"),
    creatorRow<CAudioParamSharedStorage>("audio:param-shared-storage"),
    creatorRow<CAudioParamFilterBypassOSDef>("audio:param-filter-bypass-os"),
    creatorRow<CAudioParamFilterBypassGroupSoloDef>("audio:param-filter-bypass-group-solo"),
    creatorRow<CAudioParamFilterFixedAGDef>("audio:param-filter-fixedag"),
    creatorRow<CAudioInterfaceBase>("audio:interface-base"),
    {nullptr, nullptr, nullptr},
};

} // namespace qel
