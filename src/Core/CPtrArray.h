#pragma once

#include <cstdint>
#include <utility>

namespace qel {

// Storage and growth shared by every pointer array. Eight pointers live inline; the
// pointer to the storage stays null until the first element arrives.
class CPtrArrayBase
{
public:
    static constexpr int kInlineSlots = 8;

    int count() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }
    int capacity() const { return m_capacity; }
    bool isInline() const { return m_data == m_inline; }

protected:
    CPtrArrayBase() = default;
    CPtrArrayBase(CPtrArrayBase&& other) noexcept;
    CPtrArrayBase& operator=(CPtrArrayBase&& other) noexcept;
    ~CPtrArrayBase();
    CPtrArrayBase(const CPtrArrayBase&) = delete;
    CPtrArrayBase& operator=(const CPtrArrayBase&) = delete;

    void appendRaw(void* p);
    void insertRaw(int index, void* p);
    void* removeRaw(int index);
    // Count above capacity raises the capacity by c + c/2 + 1 until it is enough; new
    // slots are null.
    void resizeRaw(int count);
    void releaseStorage();
    void takeFrom(CPtrArrayBase& other);

    int32_t m_count = 0;
    void** m_data = nullptr;
    int32_t m_capacity = 0;
    void* m_inline[kInlineSlots] = {};

private:
    void reserveRaw(int capacity);
};

// An array of pointers to T. With Owning set it deletes its elements, last first, when it
// is cleared or destroyed.
template <class T, bool Owning = false>
class CPtrArray : public CPtrArrayBase
{
public:
    CPtrArray() = default;
    CPtrArray(CPtrArray&&) noexcept = default;
    CPtrArray& operator=(CPtrArray&& other) noexcept
    {
        if (this != &other) {
            clear();
            CPtrArrayBase::operator=(std::move(other));
        }
        return *this;
    }
    ~CPtrArray() { clear(); }

    T* operator[](int index) const { return static_cast<T*>(m_data[index]); }
    T* last() const { return m_count ? static_cast<T*>(m_data[m_count - 1]) : nullptr; }
    void set(int index, T* p) { m_data[index] = p; }

    void append(T* p) { appendRaw(p); }
    void insert(int index, T* p) { insertRaw(index, p); }
    // Takes the element out without deleting it.
    T* take(int index) { return static_cast<T*>(removeRaw(index)); }
    void remove(int index)
    {
        T* p = take(index);
        if constexpr (Owning)
            delete p;
    }
    void resize(int count)
    {
        if constexpr (Owning) {
            while (m_count > count)
                remove(m_count - 1);
        }
        resizeRaw(count);
    }
    int indexOf(const T* p) const
    {
        for (int i = 0; i < m_count; ++i)
            if (m_data[i] == p)
                return i;
        return -1;
    }
    void clear()
    {
        if constexpr (Owning) {
            for (int i = m_count - 1; i >= 0; --i)
                delete static_cast<T*>(m_data[i]);
        }
        m_count = 0;
    }

    T* const* begin() const { return reinterpret_cast<T* const*>(m_data); }
    T* const* end() const { return reinterpret_cast<T* const*>(m_data) + m_count; }
};

} // namespace qel
