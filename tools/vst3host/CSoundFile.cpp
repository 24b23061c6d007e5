#include "CSoundFile.h"

#include <sndfile.h>

namespace qel {

namespace {

// Frames moved per library call: interleaved scratch of a few hundred kilobytes at most.
constexpr sf_count_t kChunkFrames = 8192;

} // namespace

CErrorPtr CSoundFile::read(const std::string& path, CHostSignal& signal)
{
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file)
        return QEL_ERROR(CString(), "@qelstr_CSoundFile_read_OpenFailed Unable to read sound file '%1': %2",
                         CString::fromUtf8(path), CString::fromUtf8(sf_strerror(nullptr)));
    if (info.channels <= 0 || info.samplerate <= 0) {
        sf_close(file);
        return QEL_ERROR(CString(), "@qelstr_CSoundFile_read_NoAudio Sound file '%1' holds no audio.",
                         CString::fromUtf8(path));
    }
    const int channels = info.channels;
    signal.sampleRate = info.samplerate;
    signal.resize(channels, info.frames);
    std::vector<double> scratch(static_cast<size_t>(kChunkFrames * channels));
    sf_count_t done = 0;
    while (done < info.frames) {
        const sf_count_t got = sf_readf_double(file, scratch.data(), kChunkFrames);
        if (got <= 0)
            break;
        for (sf_count_t f = 0; f < got && done + f < info.frames; ++f)
            for (int c = 0; c < channels; ++c)
                signal.channels[static_cast<size_t>(c)][static_cast<size_t>(done + f)] =
                    scratch[static_cast<size_t>(f * channels + c)];
        done += got;
    }
    sf_close(file);
    if (done < info.frames)
        return QEL_ERROR(CString(), "@qelstr_CSoundFile_read_Truncated Sound file '%1' ends after %2 of %3 frames.",
                         CString::fromUtf8(path), CString::number(done), CString::number(info.frames));
    return nullptr;
}

CErrorPtr CSoundFile::writeFloatWav(const std::string& path, const CHostSignal& signal)
{
    SF_INFO info = {};
    info.samplerate = static_cast<int>(signal.sampleRate + 0.5);
    info.channels = signal.channelCount();
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    if (info.channels <= 0 || !sf_format_check(&info))
        return QEL_ERROR(CString(), "@qelstr_CSoundFile_writeFloatWav_BadFormat %1 channels at %2 Hz can't be written as WAV.",
                         CString::number(info.channels), CString::number(info.samplerate));
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return QEL_ERROR(CString(), "@qelstr_CSoundFile_writeFloatWav_OpenFailed Unable to write sound file '%1': %2",
                         CString::fromUtf8(path), CString::fromUtf8(sf_strerror(nullptr)));
    const int channels = info.channels;
    const sf_count_t frames = signal.frameCount();
    std::vector<double> scratch(static_cast<size_t>(kChunkFrames * channels));
    bool failed = false;
    for (sf_count_t start = 0; start < frames && !failed; start += kChunkFrames) {
        const sf_count_t count = frames - start < kChunkFrames ? frames - start : kChunkFrames;
        for (sf_count_t f = 0; f < count; ++f)
            for (int c = 0; c < channels; ++c)
                scratch[static_cast<size_t>(f * channels + c)] =
                    signal.channels[static_cast<size_t>(c)][static_cast<size_t>(start + f)];
        failed = sf_writef_double(file, scratch.data(), count) != count;
    }
    const CString reason = CString::fromUtf8(sf_strerror(file));
    if (sf_close(file) != 0)
        failed = true;
    if (failed)
        return QEL_ERROR(CString(), "@qelstr_CSoundFile_writeFloatWav_WriteFailed Unable to write sound file '%1': %2",
                         CString::fromUtf8(path), reason);
    return nullptr;
}

} // namespace qel
