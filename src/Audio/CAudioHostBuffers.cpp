#include "Audio/CAudioHostBuffers.h"

#include <cstring>

namespace qel {
namespace {

template <class T>
void readChannel(double* __restrict dst, const T* __restrict src, int32_t stride, int32_t count)
{
    for (int32_t i = 0; i < count; ++i)
        dst[i] = CAudioHostBuffers::clean(double(src[size_t(i) * size_t(stride)]));
}

} // namespace

void CAudioHostBuffers::read(double* dst, void* const* buffers, const CAudioHostFormat& format, int32_t channel,
                             int32_t from, int32_t count)
{
    const void* base = nullptr;
    int32_t stride = 1;
    size_t first = size_t(from);
    if (buffers && channel >= 0 && channel < format.channelCount) {
        if (format.isInterleaved) {
            base = buffers[0];
            stride = format.channelCount;
            first = size_t(from) * size_t(format.channelCount) + size_t(channel);
        } else {
            base = buffers[channel];
        }
    }
    if (!base) {
        std::memset(dst, 0, size_t(count) * sizeof(double));
        return;
    }
    if (format.isDouble)
        readChannel(dst, static_cast<const double*>(base) + first, stride, count);
    else
        readChannel(dst, static_cast<const float*>(base) + first, stride, count);
}

void CAudioHostBuffers::write(void* const* buffers, bool isDouble, int32_t channel, int32_t at, const double* src,
                              int32_t count)
{
    if (!buffers || !buffers[channel] || count <= 0)
        return;
    if (isDouble) {
        std::memcpy(static_cast<double*>(buffers[channel]) + at, src, size_t(count) * sizeof(double));
        return;
    }
    float* __restrict out = static_cast<float*>(buffers[channel]) + at;
    for (int32_t i = 0; i < count; ++i)
        out[i] = float(src[i]);
}

void CAudioHostBuffers::clear(void* const* buffers, bool isDouble, int32_t channel, int32_t at, int32_t count)
{
    if (!buffers || !buffers[channel] || count <= 0)
        return;
    if (isDouble)
        std::memset(static_cast<double*>(buffers[channel]) + at, 0, size_t(count) * sizeof(double));
    else
        std::memset(static_cast<float*>(buffers[channel]) + at, 0, size_t(count) * sizeof(float));
}

} // namespace qel
