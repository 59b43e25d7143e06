// GUID: the 16-byte identifier of interfaces and property keys that cross module boundaries.
// Every public header that needs one includes this file, so the type is declared once.
//
// Compiles as C++17 and later.
#ifndef VEXEL_GUID_H
#define VEXEL_GUID_H

#include <cstddef>
#include <cstdint>

// A 32-bit, two 16-bit and eight 8-bit fields, the first three little-endian.
struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};

static_assert(sizeof(GUID) == 16, "GUID is 16 bytes");
static_assert(offsetof(GUID, Data1) == 0, "GUID layout");
static_assert(offsetof(GUID, Data2) == 4, "GUID layout");
static_assert(offsetof(GUID, Data3) == 6, "GUID layout");
static_assert(offsetof(GUID, Data4) == 8, "GUID layout");

inline constexpr bool operator==(const GUID& a, const GUID& b) {
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i) {
        if (a.Data4[i] != b.Data4[i]) return false;
    }
    return true;
}

inline constexpr bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }

#endif  // VEXEL_GUID_H
