#pragma once

#include "Core/CBlockAllocator.h"
#include "Core/CString.h"

#include <functional>
#include <map>
#include <type_traits>

namespace qel {

// std::allocator replacement that takes nodes from the block allocator.
template <class T>
struct CBlockStdAllocator
{
    using value_type = T;

    CBlockStdAllocator() = default;
    template <class U>
    CBlockStdAllocator(const CBlockStdAllocator<U>&) noexcept {}

    T* allocate(size_t n) { return static_cast<T*>(CQelMemAllocator::allocate(n, sizeof(T))); }
    void deallocate(T* p, size_t) noexcept { CQelMemAllocator::deallocate(p); }

    template <class U>
    bool operator==(const CBlockStdAllocator<U>&) const noexcept { return true; }
};

template <class K>
using CMapLess = std::conditional_t<std::is_same_v<K, CString>, CStringLess, std::less<K>>;

// The framework's ordered map: a balanced tree iterated in key order. String keys compare
// by character value, so narrow and wide keys with equal characters are the same key.
template <class K, class V>
using CMap = std::map<K, V, CMapLess<K>, CBlockStdAllocator<std::pair<const K, V>>>;

} // namespace qel
