// dlc-host: a command-line VST 3 host. It loads a plug-in bundle through its interfaces
// alone, exactly as a workstation does, and shows what the plug-in offers, renders sound
// files through it, saves and loads its state, and plays a demonstration.
//
//   dlc-host info BUNDLE
//   dlc-host render BUNDLE IN OUT.wav [--set "Title=value text"]... [--block N] [--double]
//                   [--offline] [--state FILE]
//   dlc-host state save BUNDLE FILE [--set "Title=value text"]...
//   dlc-host state load BUNDLE FILE
//   dlc-host demo BUNDLE [OUT.wav]
//
// BUNDLE is a .vst3 folder or the shared object inside it. A render keeps the input's rate
// and channel count, writes 32-bit float WAV, and cuts the plug-in's latency from the
// start so the output lines up with the input. A state file holds the bytes the plug-in
// writes for a host project. Exit status: 0 done, 1 failed, 2 bad arguments.

#include "CDemoSignal.h"
#include "CHostRenderer.h"
#include "CSignalLevels.h"
#include "CSoundFile.h"
#include "CVst3HostApplication.h"
#include "CVst3Instance.h"
#include "CVst3Module.h"
#include "CVst3HostText.h"

#include "pluginterfaces/base/smartpointer.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/vstspeaker.h"

#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

using namespace qel;
using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr const char* kHostName = "dlc-host";

int usage(const char* problem)
{
    if (problem)
        std::fprintf(stderr, "dlc-host: %s\n", problem);
    std::fprintf(stderr,
                 "usage: dlc-host info BUNDLE\n"
                 "       dlc-host render BUNDLE IN OUT.wav [--set \"Title=value text\"]... [--block N]\n"
                 "                       [--double] [--offline] [--state FILE]\n"
                 "       dlc-host state save BUNDLE FILE [--set \"Title=value text\"]...\n"
                 "       dlc-host state load BUNDLE FILE\n"
                 "       dlc-host demo BUNDLE [OUT.wav]\n"
                 "BUNDLE is a .vst3 folder or the shared object inside it.\n");
    return kExitUsage;
}

// Prints the message line of an error (the trail is for developers) and lets it go.
int fail(CErrorPtr error)
{
    const std::string text = error && error->lineCount() > 0 ? error->line(0).toUtf8() : std::string("failed");
    std::fprintf(stderr, "dlc-host: %s\n", text.c_str());
    return kExitFailed;
}

int fail(const std::string& text)
{
    std::fprintf(stderr, "dlc-host: %s\n", text.c_str());
    return kExitFailed;
}

// Options after the positional arguments.
struct COptions
{
    std::vector<std::string> positional;
    std::vector<std::string> settings;
    int blockSize = 512;
    bool isDouble = false;
    bool isOffline = false;
    std::string stateFile;
};

// Returns an empty text on success, else what was wrong. `allowed` lists the options the
// command takes.
std::string parseOptions(int argc, char** argv, int first, const std::vector<std::string>& allowed, COptions& options)
{
    auto isAllowed = [&](const std::string& name) {
        for (const std::string& a : allowed)
            if (a == name)
                return true;
        return false;
    };
    for (int i = first; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
            options.positional.push_back(arg);
            continue;
        }
        if (!isAllowed(arg))
            return "unknown option '" + arg + "'";
        const bool takesValue = arg == "--set" || arg == "--block" || arg == "--state";
        if (takesValue && i + 1 >= argc)
            return "option '" + arg + "' needs a value";
        if (arg == "--set") {
            options.settings.push_back(argv[++i]);
        } else if (arg == "--block") {
            const std::string value = argv[++i];
            char* end = nullptr;
            errno = 0;
            const long n = std::strtol(value.c_str(), &end, 10);
            if (errno || value.empty() || *end || n < 1 || n > 1 << 20)
                return "block size '" + value + "' is not a number from 1 to 1048576";
            options.blockSize = static_cast<int>(n);
        } else if (arg == "--state") {
            options.stateFile = argv[++i];
        } else if (arg == "--double") {
            options.isDouble = true;
        } else if (arg == "--offline") {
            options.isOffline = true;
        }
    }
    return std::string();
}

bool readFile(const std::string& path, std::vector<uint8_t>& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        return false;
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return !out.fail();
}

// A loaded module with one instance of its effect class, torn down in the right order.
class CHostSession
{
public:
    CHostSession() : m_host(owned(new CVst3HostApplication(kHostName))) {}
    ~CHostSession()
    {
        m_instance.destroy();
        m_module.unload();
    }

    CErrorPtr open(const std::string& bundle)
    {
        QEL_RETURN_IF_ERROR(m_module.load(bundle, static_cast<IHostApplication*>(m_host.get())), qel::CString());
        m_class = m_module.findClass(kVstAudioEffectClass);
        if (!m_class)
            return QEL_ERROR(qel::CString(), "@qelstr_dlchost_open_NoEffect '%1' has no class of category '%2'.",
                             qel::CString::fromUtf8(bundle), qel::CString(kVstAudioEffectClass));
        QEL_RETURN_IF_ERROR(m_instance.create(m_module, *m_class, m_host.get()), qel::CString());
        return nullptr;
    }

    CVst3Module& module() { return m_module; }
    CVst3Instance& instance() { return m_instance; }
    const CVst3ClassInfo& classInfo() const { return *m_class; }

private:
    IPtr<CVst3HostApplication> m_host;
    CVst3Module m_module;
    CVst3Instance m_instance;
    const CVst3ClassInfo* m_class = nullptr;
};

std::string parameterTitles(const CVst3Instance& instance)
{
    std::string titles;
    for (const CVst3ParamInfo& param : instance.parameters()) {
        if (!titles.empty())
            titles += ", ";
        titles += param.title;
    }
    return titles;
}

// Applies "Title=value text" settings as a host's edits; prints each when `verbose`.
bool applySettings(CVst3Instance& instance, const std::vector<std::string>& settings, bool verbose)
{
    for (const std::string& setting : settings) {
        const size_t equals = setting.find('=');
        if (equals == std::string::npos || equals == 0) {
            fail("setting '" + setting + "' is not of the form \"Title=value text\"");
            return false;
        }
        const std::string title = setting.substr(0, equals);
        const std::string text = setting.substr(equals + 1);
        const CVst3ParamInfo* param = instance.findParameter(title);
        if (!param) {
            fail("the plug-in has no parameter titled '" + title + "' (it has: " + parameterTitles(instance) + ")");
            return false;
        }
        double normalized = 0.0;
        if (!instance.textToValue(param->id, text, normalized)) {
            fail("'" + text + "' is not a value the parameter '" + param->title + "' takes");
            return false;
        }
        if (!instance.setParameter(param->id, normalized)) {
            fail("the parameter '" + param->title + "' refused the value '" + text + "'");
            return false;
        }
        if (verbose && &setting == &settings.front())
            std::printf("Parameters set:\n");
        if (verbose)
            std::printf("  %s = %s (normalised %.6f)\n", param->title.c_str(),
                        instance.valueToText(param->id, instance.parameter(param->id)).c_str(), normalized);
    }
    return true;
}

void printParameterValues(const CVst3Instance& instance)
{
    for (const CVst3ParamInfo& param : instance.parameters()) {
        const double value = instance.parameter(param.id);
        const std::string text = instance.valueToText(param.id, value);
        std::printf("  %-10s = %-14s (normalised %.6f)\n", param.title.c_str(), text.c_str(), value);
    }
}

std::string speakerText(SpeakerArrangement arrangement)
{
    static const char* const kNames[] = {"L",   "R",    "C",   "Lfe", "Ls",  "Rs",  "Lc",   "Rc",  "S",    "Sl",
                                         "Sr",  "Tc",   "Tfl", "Tfc", "Tfr", "Trl", "Trc",  "Trr", "Lfe2", "M",
                                         "B-W", "B-X",  "B-Y", "B-Z", "Tsl", "Tsr", "Lcs",  "Rcs"};
    std::string text;
    for (int bit = 0; bit < 64; ++bit) {
        if (!(arrangement & (SpeakerArrangement(1) << bit)))
            continue;
        if (!text.empty())
            text += ' ';
        if (bit < static_cast<int>(std::size(kNames))) {
            text += kNames[bit];
        } else {
            text += '#';
            text += std::to_string(bit);
        }
    }
    return text.empty() ? "none" : text;
}

std::string parameterFlagsText(int32 flags)
{
    struct CFlagName
    {
        int32 flag;
        const char* name;
    };
    static const CFlagName kFlags[] = {
        {ParameterInfo::kCanAutomate, "automate"},   {ParameterInfo::kIsReadOnly, "read-only"},
        {ParameterInfo::kIsWrapAround, "wrap"},      {ParameterInfo::kIsList, "list"},
        {ParameterInfo::kIsHidden, "hidden"},        {ParameterInfo::kIsProgramChange, "program-change"},
        {ParameterInfo::kIsBypass, "bypass"},
    };
    std::string text;
    for (const CFlagName& entry : kFlags) {
        if (!(flags & entry.flag))
            continue;
        if (!text.empty())
            text += ',';
        text += entry.name;
    }
    return text.empty() ? "-" : text;
}

void printBuses(const CVst3Instance& instance)
{
    std::printf("Buses:\n");
    const MediaType types[] = {kAudio, kEvent};
    const BusDirection directions[] = {kInput, kOutput};
    for (MediaType type : types) {
        for (BusDirection direction : directions) {
            const std::vector<CVst3BusInfo> list = instance.buses(type, direction);
            for (size_t i = 0; i < list.size(); ++i) {
                const CVst3BusInfo& bus = list[i];
                std::printf("  %s %-3s [%zu] %-12s %s, %d channel%s", type == kAudio ? "audio" : "event",
                            direction == kInput ? "in" : "out", i, ("\"" + bus.name + "\"").c_str(),
                            bus.busType == kMain ? "main" : "aux", bus.channelCount, bus.channelCount == 1 ? "" : "s");
                if (type == kAudio)
                    std::printf(" (0x%" PRIx64 ": %s)", static_cast<uint64_t>(bus.arrangement),
                                speakerText(bus.arrangement).c_str());
                std::printf("%s\n", (bus.flags & BusInfo::kDefaultActive) ? ", active by default" : "");
            }
        }
    }
}

void printParameters(const CVst3Instance& instance)
{
    std::printf("Parameters: %zu\n", instance.parameters().size());
    IEditController* controller = instance.controller();
    for (const CVst3ParamInfo& param : instance.parameters()) {
        std::printf("  [%u] \"%s\"", param.id, param.title.c_str());
        if (!param.shortTitle.empty() && param.shortTitle != param.title)
            std::printf(" (short \"%s\")", param.shortTitle.c_str());
        if (!param.units.empty())
            std::printf(" units \"%s\"", param.units.c_str());
        std::printf(", unit %d, flags %s\n", param.unitId, parameterFlagsText(param.flags).c_str());
        const double plainMin = controller->normalizedParamToPlain(param.id, 0.0);
        const double plainMax = controller->normalizedParamToPlain(param.id, 1.0);
        std::printf("      range \"%s\" .. \"%s\" (plain %g .. %g), ", instance.valueToText(param.id, 0.0).c_str(),
                    instance.valueToText(param.id, 1.0).c_str(), plainMin, plainMax);
        if (param.stepCount == 0)
            std::printf("continuous");
        else
            std::printf("%d step%s", param.stepCount, param.stepCount == 1 ? "" : "s");
        std::printf(", default %.6f \"%s\", now \"%s\"\n", param.defaultNormalized,
                    instance.valueToText(param.id, param.defaultNormalized).c_str(),
                    instance.valueToText(param.id, instance.parameter(param.id)).c_str());
    }
}

void printUnits(const CVst3Instance& instance)
{
    IUnitInfo* units = instance.unitInfo();
    if (!units) {
        std::printf("Units: none (no unit information)\n");
        return;
    }
    const int32 unitCount = units->getUnitCount();
    std::printf("Units: %d\n", unitCount);
    for (int32 i = 0; i < unitCount; ++i) {
        UnitInfo info = {};
        if (units->getUnitInfo(i, info) != kResultOk)
            continue;
        std::printf("  [%d] id %d \"%s\", parent %d, program list %d\n", i, info.id,
                    CVst3HostText::utf8FromUnits(info.name).c_str(), info.parentUnitId, info.programListId);
    }
    const int32 listCount = units->getProgramListCount();
    std::printf("Program lists: %d\n", listCount);
    for (int32 i = 0; i < listCount; ++i) {
        ProgramListInfo info = {};
        if (units->getProgramListInfo(i, info) != kResultOk)
            continue;
        std::printf("  id %d \"%s\", %d program%s\n", info.id, CVst3HostText::utf8FromUnits(info.name).c_str(),
                    info.programCount, info.programCount == 1 ? "" : "s");
        for (int32 p = 0; p < info.programCount && p < 16; ++p) {
            String128 name = {};
            if (units->getProgramName(info.id, p, name) == kResultOk)
                std::printf("    %d \"%s\"\n", p, CVst3HostText::utf8FromUnits(name).c_str());
        }
        if (info.programCount > 16)
            std::printf("    ... %d more\n", info.programCount - 16);
    }
}

int commandInfo(int argc, char** argv)
{
    COptions options;
    const std::string problem = parseOptions(argc, argv, 2, {}, options);
    if (!problem.empty())
        return usage(problem.c_str());
    if (options.positional.size() != 1)
        return usage("info takes one bundle");
    CHostSession session;
    if (CErrorPtr error = session.open(options.positional[0]))
        return fail(std::move(error));

    const CVst3Module& module = session.module();
    const CVst3FactoryInfo& factory = module.factoryInfo();
    std::printf("Module: %s\n", module.libraryPath().c_str());
    std::printf("Factory: vendor \"%s\", url \"%s\", email \"%s\", flags 0x%x\n", factory.vendor.c_str(),
                factory.url.c_str(), factory.email.c_str(), static_cast<unsigned>(factory.flags));
    std::printf("Classes: %zu\n", module.classes().size());
    for (size_t i = 0; i < module.classes().size(); ++i) {
        const CVst3ClassInfo& entry = module.classes()[i];
        std::printf("  [%zu] \"%s\", category \"%s\", sub-categories \"%s\"\n", i, entry.name.c_str(),
                    entry.category.c_str(), entry.subCategories.c_str());
        std::printf("      id %s, vendor \"%s\", version \"%s\", SDK \"%s\", cardinality 0x%x, flags 0x%x\n",
                    entry.cidText().c_str(), entry.vendor.c_str(), entry.version.c_str(), entry.sdkVersion.c_str(),
                    static_cast<unsigned>(entry.cardinality), static_cast<unsigned>(entry.classFlags));
    }

    CVst3Instance& instance = session.instance();
    std::printf("Instance of \"%s\": component and controller %s\n", session.classInfo().name.c_str(),
                instance.isSingleObject() ? "are one object" : "are separate objects");
    std::printf("Sample sizes: 32-bit %s, 64-bit %s\n",
                instance.processor()->canProcessSampleSize(kSample32) == kResultTrue ? "yes" : "no",
                instance.processor()->canProcessSampleSize(kSample64) == kResultTrue ? "yes" : "no");
    printBuses(instance);
    if (instance.controller())
        printParameters(instance);
    else
        std::printf("Parameters: none (no controller)\n");
    printUnits(instance);

    CVst3ProcessSetup setup;
    setup.sampleRate = 48000.0;
    setup.maxBlockSize = 1024;
    if (CErrorPtr error = instance.startProcessing(setup))
        return fail(std::move(error));
    const uint32 latency = instance.latencySamples();
    const uint32 tail = instance.tailSamples();
    instance.stopProcessing();
    std::printf("Latency: %u samples (%.3f ms) at 48000 Hz\n", latency, latency / 48.0);
    if (tail == kInfiniteTail)
        std::printf("Tail: infinite\n");
    else
        std::printf("Tail: %u samples (%.3f s) at 48000 Hz\n", tail, tail / 48000.0);
    return 0;
}

// Buses set to the signal's channel count, or a message why they can't be.
bool matchChannels(CVst3Instance& instance, int channels)
{
    instance.requestMainChannels(channels);
    const int32 in = instance.mainChannelCount(kInput);
    const int32 out = instance.mainChannelCount(kOutput);
    if (in == channels && out == channels)
        return true;
    fail("the plug-in does not process " + std::to_string(channels) + " channel" + (channels == 1 ? "" : "s") +
         " (it offers " + std::to_string(in) + " in, " + std::to_string(out) + " out)");
    return false;
}

void printLevels(const CHostSignal& input, const CHostSignal& output)
{
    const CSignalLevels in = CSignalLevels::measure(input);
    const CSignalLevels out = CSignalLevels::measure(output);
    std::printf("Levels (dBFS)      input peak    input RMS   output peak   output RMS\n");
    for (int c = 0; c < input.channelCount(); ++c)
        std::printf("  channel %-2d      %10.2f   %10.2f    %10.2f   %10.2f\n", c + 1, in.peakDb[static_cast<size_t>(c)],
                    in.rmsDb[static_cast<size_t>(c)], out.peakDb[static_cast<size_t>(c)],
                    out.rmsDb[static_cast<size_t>(c)]);
}

void printTiming(const CHostSignal& input, const CRenderReport& report)
{
    const double seconds = input.seconds();
    std::printf("Latency: %u samples (%.3f ms), cut from the output's start%s\n", report.latencySamples,
                1000.0 * report.latencySamples / input.sampleRate,
                report.latencyChanged ? "; the plug-in reported a new latency while rendering" : "");
    if (report.processSeconds > 0.0)
        std::printf("Processing: %.1f ms for %.2f s of audio, %.0fx real time\n", 1000.0 * report.processSeconds,
                    seconds, seconds / report.processSeconds);
    if (report.failedBlocks > 0)
        std::printf("Warning: %d process calls did not succeed\n", report.failedBlocks);
}

int commandRender(int argc, char** argv)
{
    COptions options;
    const std::string problem =
        parseOptions(argc, argv, 2, {"--set", "--block", "--double", "--offline", "--state"}, options);
    if (!problem.empty())
        return usage(problem.c_str());
    if (options.positional.size() != 3)
        return usage("render takes a bundle, an input file and an output file");
    const std::string& inPath = options.positional[1];
    const std::string& outPath = options.positional[2];

    CHostSignal input;
    if (CErrorPtr error = CSoundFile::read(inPath, input))
        return fail(std::move(error));
    std::vector<uint8_t> state;
    if (!options.stateFile.empty() && !readFile(options.stateFile, state))
        return fail("unable to read state file '" + options.stateFile + "'");

    CHostSession session;
    if (CErrorPtr error = session.open(options.positional[0]))
        return fail(std::move(error));
    CVst3Instance& instance = session.instance();
    if (!matchChannels(instance, input.channelCount()))
        return kExitFailed;
    if (!options.stateFile.empty())
        if (CErrorPtr error = instance.loadState(state))
            return fail(std::move(error));
    if (!applySettings(instance, options.settings, true))
        return kExitFailed;

    CRenderOptions renderOptions;
    renderOptions.blockSize = options.blockSize;
    renderOptions.isDouble = options.isDouble;
    renderOptions.isOffline = options.isOffline;
    renderOptions.showProgress = true;
    CHostSignal output;
    CRenderReport report;
    if (CErrorPtr error = CHostRenderer::render(instance, input, output, renderOptions, report))
        return fail(std::move(error));
    if (CErrorPtr error = CSoundFile::writeFloatWav(outPath, output))
        return fail(std::move(error));
    std::printf("Rendered %s: %" PRId64 " frames, %d channel%s at %.0f Hz, blocks of %d, %s, %s\n", outPath.c_str(),
                output.frameCount(), output.channelCount(), output.channelCount() == 1 ? "" : "s", output.sampleRate,
                options.blockSize, options.isDouble ? "64-bit" : "32-bit", options.isOffline ? "offline" : "real-time");
    printTiming(input, report);
    return report.failedBlocks > 0 ? kExitFailed : 0;
}

int commandState(int argc, char** argv)
{
    if (argc < 3)
        return usage("state takes 'save' or 'load'");
    const std::string action = argv[2];
    if (action != "save" && action != "load")
        return usage(("unknown state action '" + action + "'").c_str());
    COptions options;
    const std::string problem = parseOptions(argc, argv, 3, action == "save" ? std::vector<std::string>{"--set"}
                                                                              : std::vector<std::string>{},
                                             options);
    if (!problem.empty())
        return usage(problem.c_str());
    if (options.positional.size() != 2)
        return usage(("state " + action + " takes a bundle and a file").c_str());
    const std::string& path = options.positional[1];

    std::vector<uint8_t> bytes;
    if (action == "load" && !readFile(path, bytes))
        return fail("unable to read state file '" + path + "'");
    CHostSession session;
    if (CErrorPtr error = session.open(options.positional[0]))
        return fail(std::move(error));
    CVst3Instance& instance = session.instance();

    if (action == "save") {
        if (!applySettings(instance, options.settings, false))
            return kExitFailed;
        // The processor takes queued edits at its next block; a block of no samples delivers
        // them without sound, so the state holds them whichever side writes it.
        CVst3ProcessSetup setup;
        if (CErrorPtr error = instance.startProcessing(setup))
            return fail(std::move(error));
        instance.process(0);
        instance.stopProcessing();
        if (CErrorPtr error = instance.saveState(bytes))
            return fail(std::move(error));
        if (!writeFile(path, bytes))
            return fail("unable to write state file '" + path + "'");
        std::printf("Saved %zu bytes of state to %s:\n", bytes.size(), path.c_str());
    } else {
        if (CErrorPtr error = instance.loadState(bytes))
            return fail(std::move(error));
        std::printf("Loaded %zu bytes of state from %s:\n", bytes.size(), path.c_str());
    }
    printParameterValues(instance);
    return 0;
}

// A setting the demo makes: a parameter by title and the number its text should show.
struct CDemoSetting
{
    const char* title;
    double target;
};

// Sets a parameter to show `target`. The texts are tried in turn, and one counts only when
// the value it gives shows that number: a plug-in may read a text it can't parse as the
// value it has.
bool applyDemoSetting(CVst3Instance& instance, const CVst3ParamInfo& param, double target, std::string& asked)
{
    char number[32];
    std::snprintf(number, sizeof(number), "%g", target);
    const std::string plain = number;
    std::snprintf(number, sizeof(number), "%+g", target);
    const std::string sign = number;
    for (const std::string& text : {plain, sign, plain + " dB", sign + " dB"}) {
        double normalized = 0.0;
        if (!instance.textToValue(param.id, text, normalized))
            continue;
        const std::string shown = instance.valueToText(param.id, normalized);
        char* end = nullptr;
        const double value = std::strtod(shown.c_str(), &end);
        if (end == shown.c_str() || std::fabs(value - target) > 0.05)
            continue;
        if (!instance.setParameter(param.id, normalized))
            return false;
        asked = text;
        return true;
    }
    return false;
}

int commandDemo(int argc, char** argv)
{
    COptions options;
    const std::string problem = parseOptions(argc, argv, 2, {}, options);
    if (!problem.empty())
        return usage(problem.c_str());
    if (options.positional.empty() || options.positional.size() > 2)
        return usage("demo takes a bundle and, optionally, an output file");

    const CHostSignal input = CDemoSignal::make(48000.0, 4.0);
    CHostSession session;
    if (CErrorPtr error = session.open(options.positional[0]))
        return fail(std::move(error));
    CVst3Instance& instance = session.instance();
    if (!matchChannels(instance, input.channelCount()))
        return kExitFailed;

    std::printf("%s demo: %.2f s of drums over a sine sweep, %.0f Hz, %d channels, blocks of 512, 32-bit\n",
                session.classInfo().name.c_str(), input.seconds(), input.sampleRate, input.channelCount());
    std::printf("Parameters set:\n");
    // Not the defaults: the bands and the output gain moved by a few decibels each. What
    // the plug-in lacks is skipped.
    const CDemoSetting plan[] = {{"Lo", 4.0}, {"Mid", -2.0}, {"Hi", 3.0}, {"OutGain", -3.0}};
    int applied = 0;
    for (const CDemoSetting& setting : plan) {
        const CVst3ParamInfo* param = instance.findParameter(setting.title);
        if (!param) {
            std::printf("  %-8s not offered by this build, skipped\n", setting.title);
            continue;
        }
        std::string asked;
        if (!applyDemoSetting(instance, *param, setting.target, asked)) {
            std::printf("  %-8s takes no text for %g, skipped\n", param->title.c_str(), setting.target);
            continue;
        }
        std::printf("  %-8s = %s%s%s (asked for \"%s\", normalised %.6f; default %s)\n", param->title.c_str(),
                    instance.valueToText(param->id, instance.parameter(param->id)).c_str(),
                    param->units.empty() ? "" : " ", param->units.c_str(), asked.c_str(),
                    instance.parameter(param->id),
                    (instance.valueToText(param->id, param->defaultNormalized) + (param->units.empty() ? "" : " ") + param->units).c_str());
        ++applied;
    }
    if (applied == 0)
        std::printf("  (none: rendering at the defaults)\n");

    CRenderOptions renderOptions;
    CHostSignal output;
    CRenderReport report;
    if (CErrorPtr error = CHostRenderer::render(instance, input, output, renderOptions, report))
        return fail(std::move(error));
    printLevels(input, output);
    printTiming(input, report);
    if (options.positional.size() == 2) {
        if (CErrorPtr error = CSoundFile::writeFloatWav(options.positional[1], output))
            return fail(std::move(error));
        std::printf("Wrote %s\n", options.positional[1].c_str());
    }
    return report.failedBlocks > 0 ? kExitFailed : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage(nullptr);
    const std::string command = argv[1];
    if (command == "info")
        return commandInfo(argc, argv);
    if (command == "render")
        return commandRender(argc, argv);
    if (command == "state")
        return commandState(argc, argv);
    if (command == "demo")
        return commandDemo(argc, argv);
    if (command == "--help" || command == "-h" || command == "help") {
        usage(nullptr);
        return 0;
    }
    return usage(("unknown command '" + command + "'").c_str());
}
