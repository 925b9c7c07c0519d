#pragma once
// kel_templ::CKelArray<T, ARG_T>: the contiguous, growable array that holds every collection of
// the library, MFC CArray-like. Indexed from 0 with a signed 32-bit count. Elements are copied
// with T's assignment (so a CXYZ copy carries its strings).
//
// Storage of 2 MiB and more is mapped from the system in huge-page aligned blocks
// (platform/PageBlock.h): a surface's million triangles then fault in a few dozen pages.
//
// An index out of range (and a negative size) is a deliberate fatal error: one line on stderr,
// then abort(). Callers check their indexes first. Allocation failure throws std::bad_alloc,
// which the classes catch where they grow an array.
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/PageBlock.h"

namespace kel_templ {

namespace detail {
[[noreturn]] inline void ArrayIndexFault(const char* operation, long long index, long long size) {
    std::fprintf(stderr, "kel_templ::CKelArray::%s index %lld out of range [0, %lld)\n",
                 operation, index, size);
    std::fflush(stderr);
    std::abort();
}
}  // namespace detail

template <class T, class ARG_T = const T&>
class CKelArray {
public:
    CKelArray() = default;
    CKelArray(const CKelArray&) = default;
    CKelArray(CKelArray&&) noexcept = default;
    CKelArray& operator=(const CKelArray&) = default;
    CKelArray& operator=(CKelArray&&) noexcept = default;

    int GetSize() const noexcept { return static_cast<int>(m_data.size()); }
    int GetCount() const noexcept { return GetSize(); }
    int GetUpperBound() const noexcept { return GetSize() - 1; }
    bool IsEmpty() const noexcept { return m_data.empty(); }

    // Resizes to n elements: a larger count appends copies of fill (T() by default), a
    // smaller one erases the tail.
    void SetSize(int n) { SetSize(n, T()); }
    void SetSize(int n, const T& fill) {
        if (n < 0) detail::ArrayIndexFault("SetSize", n, GetSize());
        m_data.resize(static_cast<std::size_t>(n), fill);
    }
    // Keeps room for n elements without changing the count.
    void Reserve(int n) {
        if (n > 0) m_data.reserve(static_cast<std::size_t>(n));
    }
    void FreeExtra() { m_data.shrink_to_fit(); }

    const T& GetAt(int i) const { return m_data[Check("GetAt", i)]; }
    void SetAt(int i, ARG_T v) { m_data[Check("SetAt", i)] = v; }
    T& ElementAt(int i) { return m_data[Check("ElementAt", i)]; }
    const T& ElementAt(int i) const { return m_data[Check("ElementAt", i)]; }
    T& operator[](int i) { return m_data[Check("operator[]", i)]; }
    const T& operator[](int i) const { return m_data[Check("operator[]", i)]; }

    T* GetData() noexcept { return m_data.empty() ? nullptr : m_data.data(); }
    const T* GetData() const noexcept { return m_data.empty() ? nullptr : m_data.data(); }

    // Appends a copy; returns its index.
    int Add(ARG_T v) {
        m_data.push_back(v);
        return GetUpperBound();
    }
    // Inserts count copies of v before index i; i == GetSize() appends.
    void InsertAt(int i, ARG_T v, int count = 1) {
        if (i < 0 || i > GetSize()) detail::ArrayIndexFault("InsertAt", i, GetSize() + 1);
        if (count <= 0) return;
        const T copy(v);  // v may refer into this array
        m_data.insert(m_data.begin() + i, static_cast<std::size_t>(count), copy);
    }
    // Removes count elements from index i; the whole range must exist.
    void RemoveAt(int i, int count = 1) {
        if (count < 0 || i < 0 || i + static_cast<long long>(count) > GetSize())
            detail::ArrayIndexFault("RemoveAt", static_cast<long long>(i) + count - 1, GetSize());
        m_data.erase(m_data.begin() + i, m_data.begin() + i + count);
    }
    void RemoveAll() noexcept { m_data.clear(); }

    // Makes this a copy of src.
    void Copy(const CKelArray& src) {
        if (this != &src) m_data = src.m_data;
    }
    // Appends a copy of src; returns the index of its first element in this array.
    int Append(const CKelArray& src) {
        const int first = GetSize();
        if (this == &src) {
            Vector copy(m_data);
            m_data.insert(m_data.end(), copy.begin(), copy.end());
        } else {
            m_data.insert(m_data.end(), src.m_data.begin(), src.m_data.end());
        }
        return first;
    }

private:
    std::size_t Check(const char* operation, int i) const {
        if (i < 0 || i >= GetSize()) detail::ArrayIndexFault(operation, i, GetSize());
        return static_cast<std::size_t>(i);
    }

    using Vector = std::vector<T, kel_pages::Allocator<T>>;
    Vector m_data;
};

}  // namespace kel_templ
