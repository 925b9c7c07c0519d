// CTin: the surface files, versions 0, 1 and 2, little-endian and field by field.
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "platform/Bytes.h"
#include "platform/File.h"
#include "platform/Trace.h"
#include "surface/Tin.h"

namespace {

constexpr int kMagicBytes = 32;
constexpr int kMagicChecked = 9;  // the eight characters and their terminator
constexpr int kReservedBytes = 24;  // three doubles written as 0.0
constexpr int kVertexBytes = 24;
constexpr int kTriBytes = 24;
constexpr std::int32_t kVer1Tag = 7;  // written behind a version 1 name; skipped on reading
// Smallest surface records: name, (tag,) three empty counts, and reserved or texture count.
constexpr long long kMinVer1Record = 256 + 4 + 12 + kReservedBytes;
constexpr long long kMinVer2Record = 256 + 12 + 4;
const char kMagic1[] = "TIN_1.00";
const char kMagic2[] = "TIN_2.00";

typedef std::vector<std::uint8_t> Bytes;

long long Remaining(CFile& file) {
    return static_cast<long long>(file.GetLength()) - static_cast<long long>(file.GetPosition());
}

// Reads exactly n bytes; false on a short read.
bool ReadExact(CFile& file, Bytes& buf, long long n) {
    if (n < 0 || n > Remaining(file)) return false;
    buf.resize(static_cast<std::size_t>(n));
    if (n == 0) return true;
    return file.ReadAll(buf.data(), buf.size()) == buf.size();
}

bool ReadI32(CFile& file, std::int32_t& v) {
    std::uint8_t b[4];
    if (file.Read(b, 4) != 4) return false;
    v = kel_bytes::GetI32(b, 0);
    return true;
}

void WriteI32(CFile& file, std::int32_t v) {
    std::uint8_t b[4];
    kel_bytes::PutI32(b, 0, v);
    file.Write(b, 4);
}

void WriteZeros(CFile& file, int n) {
    const Bytes zeros(static_cast<std::size_t>(n), 0);
    file.WriteAll(zeros.data(), zeros.size());
}

void WriteMagic(CFile& file, const char* magic) {
    std::uint8_t b[kMagicBytes] = {};
    std::memcpy(b, magic, std::strlen(magic));
    file.Write(b, kMagicBytes);
}

typedef int (CTin::*RecordFn)(CFile&);

int WriteArray(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins, const char* magic,
               RecordFn writer, const wchar_t* what) {
    CFile file;
    try {
        if (!file.Open(fname, CFile::modeCreate | CFile::modeWrite)) return 0;
        WriteMagic(file, magic);
        WriteI32(file, tins.GetSize());
        for (int i = 0; i < tins.GetSize(); ++i)
            if (!(tins[i].*writer)(file)) {
                file.Close();
                return 0;
            }
        file.Close();
        return 1;
    } catch (const CFileException&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"%s CFileException", what);
        return 0;
    } catch (const std::bad_alloc&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"%s CMemoryException", what);
        return 0;
    }
}

// Steps 2 to 6 of reading an array; 2 means "not this magic" (the file is closed).
int ReadArray(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins, const char* magic,
              RecordFn reader, long long minRecord, const wchar_t* openLine, const wchar_t* what) {
    CFile file;
    try {
        if (FALSE == file.Open(fname, CFile::modeRead)) {
            KEL_TRACE_ALWAYS(L"%s", openLine);
            return 0;
        }
        std::uint8_t head[kMagicBytes + 1] = {};
        if (file.Read(head, kMagicBytes) != static_cast<UINT>(kMagicBytes)) {
            file.Close();
            return 0;
        }
        if (std::memcmp(head, magic, kMagicChecked) != 0) {
            file.Close();
            return 2;
        }
        std::int32_t count = 0;
        if (!ReadI32(file, count)) {
            file.Close();
            return 0;
        }
        if (count < 0) {
            file.Close();
            KEL_TRACE_ALWAYS(L"%s count < 0", what);
            return 0;
        }
        if (count == 0) {
            file.Close();
            return 1;
        }
        // Every record takes at least minRecord bytes: a larger count cannot be in the file.
        if (static_cast<long long>(count) * minRecord > Remaining(file)) {
            file.Close();
            return 0;
        }
        tins.SetSize(count);
        for (int i = 0; i < count; ++i)
            if (!(tins[i].*reader)(file)) {
                file.Close();
                return 0;
            }
        file.Close();
        return 1;
    } catch (const CFileException&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"%s CFileException", what);
        return 0;
    } catch (const std::bad_alloc&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"%s CMemoryException", what);
        return 0;
    }
}

}  // namespace

void CTin::WriteName(CFile& file) const {
    // The name's UTF-16LE bytes up to the first zero byte, then zeros: the field as a
    // single-byte "%s" of the 16-bit name buffer has always been stored.
    std::uint8_t b[kNameBytes] = {};
    std::size_t n = 0;
    bool ended = false;
    for (int i = 0; i < m_name.GetLength() && !ended; ++i) {
        const std::uint32_t c = static_cast<std::uint32_t>(m_name.GetAt(i));
        std::uint16_t units[2];
        int nUnits = 1;
        units[0] = static_cast<std::uint16_t>(c);
        if (c > 0xFFFFu) {
            const std::uint32_t s = c - 0x10000u;
            units[0] = static_cast<std::uint16_t>(0xD800u + (s >> 10));
            units[1] = static_cast<std::uint16_t>(0xDC00u + (s & 0x3FFu));
            nUnits = 2;
        }
        for (int u = 0; u < nUnits && !ended; ++u)
            for (int k = 0; k < 2; ++k) {
                const std::uint8_t byte = static_cast<std::uint8_t>(units[u] >> (8 * k));
                if (byte == 0 || n + 1 >= sizeof(b)) {
                    ended = true;
                    break;
                }
                b[n++] = byte;
            }
    }
    file.Write(b, kNameBytes);
}

int CTin::ReadName(CFile& file) {
    Bytes b;
    if (!ReadExact(file, b, kNameBytes)) return 0;
    std::size_t n = 0;
    while (n < b.size() && b[n] != 0) ++n;
    m_name = kel_text::SingleByteToWide(reinterpret_cast<const char*>(b.data()), n);
    return 1;
}

int CTin::WriteMesh(CFile& file) const {
    const int nPt = m_point.GetSize(), nTri = m_tri.GetSize(), nHull = m_hull.GetSize();
    Bytes b(static_cast<std::size_t>(12 + kVertexBytes * static_cast<long long>(nPt) +
                                     kTriBytes * static_cast<long long>(nTri) + 4LL * nHull));
    std::size_t off = 0;
    kel_bytes::PutI32(b.data(), off, nPt);
    off += 4;
    for (int i = 0; i < nPt; ++i, off += kVertexBytes) {
        kel_bytes::PutF64(b.data(), off, m_point[i].x);
        kel_bytes::PutF64(b.data(), off + 8, m_point[i].y);
        kel_bytes::PutF64(b.data(), off + 16, m_point[i].z);
    }
    kel_bytes::PutI32(b.data(), off, nTri);
    off += 4;
    for (int j = 0; j < nTri; ++j, off += kTriBytes)
        for (int k = 0; k < 3; ++k) {
            kel_bytes::PutI32(b.data(), off + 4 * k, m_tri[j].v[k]);
            kel_bytes::PutI32(b.data(), off + 12 + 4 * k, m_tri[j].nb[k]);
        }
    kel_bytes::PutI32(b.data(), off, nHull);
    off += 4;
    for (int h = 0; h < nHull; ++h, off += 4) kel_bytes::PutI32(b.data(), off, m_hull[h]);
    file.WriteAll(b.data(), b.size());
    return 1;
}

int CTin::ReadMesh(CFile& file) {
    DropRayIndex();
    Bytes b;
    std::int32_t nPt = 0, nTri = 0, nHull = 0;
    if (!ReadI32(file, nPt) || nPt < 0 || !ReadExact(file, b, kVertexBytes * static_cast<long long>(nPt)))
        return 0;
    m_point.SetSize(nPt);
    for (int i = 0; i < nPt; ++i) {
        const std::size_t off = static_cast<std::size_t>(i) * kVertexBytes;
        const double x = kel_bytes::GetF64(b.data(), off), y = kel_bytes::GetF64(b.data(), off + 8),
                     z = kel_bytes::GetF64(b.data(), off + 16);
        if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)) {
            KEL_TRACE_ALWAYS(L"CTin::ReadMesh !std::isfinite(x) || !std::isfinite(y) || "
                             L"!std::isfinite(z)");
            return 0;
        }
        m_point[i].SetXYZ(x, y, z);
    }
    if (!ReadI32(file, nTri) || nTri < 0 || !ReadExact(file, b, kTriBytes * static_cast<long long>(nTri)))
        return 0;
    m_tri.SetSize(nTri);
    for (int j = 0; j < nTri; ++j) {
        const std::size_t off = static_cast<std::size_t>(j) * kTriBytes;
        CTri& t = m_tri[j];
        t.flag = 0;
        for (int k = 0; k < 3; ++k) {
            t.v[k] = kel_bytes::GetI32(b.data(), off + 4 * k);
            t.nb[k] = kel_bytes::GetI32(b.data(), off + 12 + 4 * k);
            // Indexes are taken as stored, but one that points nowhere would abort later.
            if (t.v[k] < 0 || t.v[k] >= nPt || t.nb[k] < -1 || t.nb[k] >= nTri) return 0;
        }
    }
    if (!ReadI32(file, nHull) || nHull < 0 || !ReadExact(file, b, 4LL * nHull)) return 0;
    m_hull.SetSize(nHull);
    for (int h = 0; h < nHull; ++h) {
        m_hull[h] = kel_bytes::GetI32(b.data(), static_cast<std::size_t>(h) * 4);
        if (m_hull[h] < 0 || m_hull[h] >= nPt) return 0;
    }
    return 1;
}

void CTin::ClearTexture() {
    m_texU.SetSize(0);
    m_texV.SetSize(0);
    m_texU.SetSize(m_point.GetSize(), 0.0);
    m_texV.SetSize(m_point.GetSize(), 0.0);
}

int CTin::WriteBIN_VER0(const wchar_t* fname) {
    CFile file;
    try {
        if (!file.Open(fname, CFile::modeCreate | CFile::modeWrite)) return 0;
        WriteMesh(file);
        WriteZeros(file, kReservedBytes);
        file.Close();
        return 1;
    } catch (const CFileException&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"CTin::WriteBIN_VER0 CFileException");
        return 0;
    } catch (const std::bad_alloc&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"CTin::WriteBIN_VER0 CMemoryException");
        return 0;
    }
}

int CTin::WriteBIN_VER1_SUB(CFile& file) {
    WriteName(file);
    WriteI32(file, kVer1Tag);
    WriteMesh(file);
    WriteZeros(file, kReservedBytes);
    return 1;
}

int CTin::WriteBIN_VER2_SUB(CFile& file) {
    WriteName(file);
    WriteMesh(file);
    const int n = m_point.GetSize();
    if (m_texU.GetSize() != n || m_texV.GetSize() != n) {
        // Not computed yet (a mesh built with AddTri, for one): derive them now.
        if (!UpdateTinRange() || !UpdateTextureCoord()) return 0;
    }
    Bytes b(4 + 8 * static_cast<std::size_t>(n));
    kel_bytes::PutI32(b.data(), 0, n);
    for (int i = 0; i < n; ++i) {
        kel_bytes::PutF32(b.data(), 4 + 8 * static_cast<std::size_t>(i), static_cast<float>(m_texU[i]));
        kel_bytes::PutF32(b.data(), 8 + 8 * static_cast<std::size_t>(i), static_cast<float>(m_texV[i]));
    }
    file.WriteAll(b.data(), b.size());
    return 1;
}

int CTin::WriteBIN_VER1(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins) {
    return WriteArray(fname, tins, kMagic1, &CTin::WriteBIN_VER1_SUB, L"CTin::WriteBIN_VER1");
}

int CTin::WriteBIN_VER2(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins) {
    return WriteArray(fname, tins, kMagic2, &CTin::WriteBIN_VER2_SUB, L"CTin::WriteBIN_VER2");
}

int CTin::ReadBIN_VER0(const wchar_t* fname) {
    InitData();
    CFile file;
    try {
        if (FALSE == file.Open(fname, CFile::modeRead)) {
            KEL_TRACE_ALWAYS(L"CTin::ReadBIN_VER0 FALSE == file.Open( fname,CFile::modeRead)");
            return 0;
        }
        Bytes reserved;
        const int ok = ReadMesh(file) && ReadExact(file, reserved, kReservedBytes);
        file.Close();
        if (!ok) return 0;
        ClearTexture();
        return UpdateTinRange() && UpdateDepth() ? 1 : 0;
    } catch (const CFileException&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"CTin::ReadBIN_VER0 CFileException");
        return 0;
    } catch (const std::bad_alloc&) {
        file.Abort();
        KEL_TRACE_ALWAYS(L"CTin::ReadBIN_VER0 CMemoryException");
        return 0;
    }
}

int CTin::ReadBIN_VER1_SUB(CFile& file) {
    InitData();
    std::int32_t tag = 0;
    Bytes reserved;
    if (!ReadName(file) || !ReadI32(file, tag) || !ReadMesh(file) ||
        !ReadExact(file, reserved, kReservedBytes))
        return 0;
    ClearTexture();
    return UpdateTinRange() && UpdateDepth() ? 1 : 0;
}

int CTin::ReadBIN_VER2_SUB(CFile& file) {
    InitData();
    std::int32_t n = 0;
    Bytes b;
    if (!ReadName(file) || !ReadMesh(file) || !ReadI32(file, n) || n != m_point.GetSize() ||
        !ReadExact(file, b, 8LL * n))
        return 0;
    m_texU.SetSize(n);
    m_texV.SetSize(n);
    for (int i = 0; i < n; ++i) {
        m_texU[i] = kel_bytes::GetF32(b.data(), 8 * static_cast<std::size_t>(i));
        m_texV[i] = kel_bytes::GetF32(b.data(), 8 * static_cast<std::size_t>(i) + 4);
    }
    return UpdateTinRange() && UpdateDepth() ? 1 : 0;
}

int CTin::ReadBIN_VER1(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins) {
    tins.RemoveAll();
    const int rc = ReadArray(fname, tins, kMagic1, &CTin::ReadBIN_VER1_SUB, kMinVer1Record,
                             L"CTin::ReadBIN_VER1 FALSE == file.Open( fname,CFile::modeRead)",
                             L"CTin::ReadBIN_VER1");
    if (rc != 2) return rc;
    CTin one;
    const int index = tins.Add(one);
    return tins[index].ReadBIN_VER0(fname);
}

int CTin::ReadBIN_VER2(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins) {
    tins.RemoveAll();
    const int rc = ReadArray(fname, tins, kMagic2, &CTin::ReadBIN_VER2_SUB, kMinVer2Record,
                             L"CTin::ReadBIN_VER2 FALSE == file.Open( fname,CFile::modeRead)",
                             L"CTin::ReadBIN_VER2");
    if (rc != 2) return rc;
    return ReadBIN_VER1(fname, tins);
}
