#pragma once

#include <cstddef>
#include <new>

namespace qel {

// A block of doubles on a 64-byte boundary that only ever grows: the convolution's spectra
// and histories live in one of these, so that designing the same filter again, or a
// smaller one, reuses the memory and allocates nothing. Every FFT plan is made for arrays
// of this alignment, which is what lets one plan run on any of them.
class CAlignedDoubles
{
public:
    static constexpr size_t kAlignment = 64;
    static constexpr size_t kDoublesPerLine = kAlignment / sizeof(double);

    CAlignedDoubles() = default;
    ~CAlignedDoubles() { release(); }
    CAlignedDoubles(const CAlignedDoubles&) = delete;
    CAlignedDoubles& operator=(const CAlignedDoubles&) = delete;
    CAlignedDoubles(CAlignedDoubles&& other) noexcept : m_data(other.m_data), m_capacity(other.m_capacity)
    {
        other.m_data = nullptr;
        other.m_capacity = 0;
    }

    // Room for `count` doubles; what was there is not kept when it has to grow. False
    // without memory, which leaves the block empty.
    bool reserve(size_t count)
    {
        if (count <= m_capacity)
            return true;
        release();
        m_data = static_cast<double*>(::operator new(count * sizeof(double), std::align_val_t(kAlignment), std::nothrow));
        m_capacity = m_data ? count : 0;
        return m_data != nullptr;
    }
    void release()
    {
        if (m_data)
            ::operator delete(m_data, std::align_val_t(kAlignment));
        m_data = nullptr;
        m_capacity = 0;
    }

    double* data() const { return m_data; }
    size_t capacity() const { return m_capacity; }

    // `count` rounded up to whole cache lines, so that consecutive arrays carved out of
    // one block all start on the boundary.
    static size_t roundUp(size_t count) { return (count + kDoublesPerLine - 1) / kDoublesPerLine * kDoublesPerLine; }

private:
    double* m_data = nullptr;
    size_t m_capacity = 0;
};

} // namespace qel
